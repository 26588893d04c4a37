// Must not compile: it is built as part of the release library's layer, which does not link the
// updater, so the updater's headers are out of its reach. One test builds it and expects the
// compiler to miss "app/config.h".
#include "release/download.h"
#include "app/config.h"
