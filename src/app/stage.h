// Staging: every changed file downloaded into the staging folder and verified, from peers first
// and the update servers second, before anything on the machine is touched.
#pragma once
#include "release/update_item.h"

#include <cstdint>
#include <list>
#include <string>
#include <vector>

class Progress;

// Creates the staging folder and fetches every item into it under `urlPrefix`; a copy that an
// earlier run staged and that is still right is kept. Peers of an item are asked on
// `httpSharePort`; `servers` are the update servers still in use, and each one that fails a
// download is taken out. False after "Failed to download. (name)" when an item could not be
// fetched: no later item is tried, and what is staged stays for the next run. `progress` is told
// of every transfer and its bytes.
bool StageItems(const std::wstring& stagingDirectory, const std::wstring& urlPrefix, std::list<UpdateItem>& items,
                uint16_t httpSharePort, std::vector<std::wstring>& servers, Progress& progress);
