#include "app/headless.h"
int run_headless(int, char**) { return 0; }
