#pragma once
int run_headless(int argc, char** argv);
