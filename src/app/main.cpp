// Process entry of VeyUpdater.
#include "runtime/pool.h"

int wmain(int argc, wchar_t** argv)
{
    PoolInit();
    PoolDrain();
    return 0;
}
