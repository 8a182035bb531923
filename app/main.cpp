#include "app/headless.h"

int main(int argc, char** argv) { return run_headless(argc, argv); }
