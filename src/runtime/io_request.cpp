// The life of a request record: taken zeroed from the pool, completed by whichever holder lets go
// of it last.
#include "runtime/io_request.h"
#include "runtime/fatal.h"
#include "runtime/pool.h"

#include <cstdlib>
#include <new>

IoRequest* NewIoRequest()
{
    return new (PoolAlloc(kIoRequestClass)) IoRequest{};
}

unsigned long CompleteIoRequest(_OVERLAPPED* overlapped)
{
    auto* request = reinterpret_cast<IoRequest*>(overlapped);
    long references = --request->refCount;
    if (references > 0)
        return 0;
    if (references < 0)
        FatalError(kFatalIoRequestReleased);
    if (request->callback)
        request->callback(request);
    if (request->ownership == kBufferHeap)
        free(request->buffer);
    else if (request->ownership == kBufferPool)
        PoolFree(request->buffer);
    if (request->followUp)
        request->followUp(request->error, request->transferred);
    PoolFree(request);
    return 0;
}
