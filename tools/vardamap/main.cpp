// vardamap - a command-line host for the SHP vector-map plug-in.
#include "Cli.h"

int main(int argc, char** argv) { return vardamap::Main(argc, argv); }
