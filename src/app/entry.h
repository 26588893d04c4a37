// The program's entry routine.
#pragma once

// Sets up, reads the one argument, runs the update and tears down; always 0.
int UpdaterMain(int argc, wchar_t** argv);
