// The rehasher's loop: asleep until the catalogue queues a file or the thread is stopped.
#include "peer/rehasher.h"
#include "peer/catalogue.h"

#include <windows.h>

Rehasher::Rehasher(Catalogue& catalogue) : catalogue(catalogue) {}

Rehasher::~Rehasher()
{
    // Stopped here, while Loop still belongs to this class.
    Stop();
}

bool Rehasher::Loop()
{
    HANDLE events[] = {wakeEvent.Get(), catalogue.StaleEvent()};
    if (WaitForMultipleObjects(2, events, FALSE, INFINITE) == WAIT_OBJECT_0 + 1)
        catalogue.HashStale();
    return true;
}
