// The run sequence over the update servers.
#pragma once

class Progress;
struct UpdaterConfig;

// Tries the shuffled domains in ring order until one has been dealt with; tells `progress` what
// the update does.
void RunUpdate(const UpdaterConfig& config, Progress& progress);
