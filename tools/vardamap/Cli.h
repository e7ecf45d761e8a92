// Cli.h - the program's entry: parses the command line and runs a command.
#ifndef VARDAMAP_CLI_H
#define VARDAMAP_CLI_H

namespace vardamap {

// Returns the process exit code.
int Main(int argc, char** argv);

}  // namespace vardamap

#endif
