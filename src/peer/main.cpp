// Process entry of VeyShare.
#include "peer/entry.h"

int wmain(int argc, wchar_t** argv)
{
    return ShareMain(argc, argv);
}
