// Process entry of VeyUpdater.
#include "app/entry.h"

int wmain(int argc, wchar_t** argv)
{
    return UpdaterMain(argc, argv);
}
