// The run sequence over the update servers.
#pragma once

struct UpdaterConfig;

// Tries the shuffled domains in ring order until one has been dealt with.
void RunUpdate(const UpdaterConfig& config);
