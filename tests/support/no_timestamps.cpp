#include <cstdlib>

// However a test program is started, an archive of its own never asks the network for a timestamp.
// Part of every test program; runs before main, while there is one thread.
[[maybe_unused]] static const int kTurnedOff = setenv("AMBERVANE_NO_TIMESTAMP", "1", 1);
