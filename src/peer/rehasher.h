// The rehasher: a thread that hashes again the files a query found changed, so that answering a
// query never waits for a file to be read.
#pragma once
#include "runtime/thread.h"

class Catalogue;

class Rehasher : public wThread {
public:
    explicit Rehasher(Catalogue& catalogue);
    ~Rehasher();

protected:
    bool Loop() override;

private:
    Catalogue& catalogue;
};
