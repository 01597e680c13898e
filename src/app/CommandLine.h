// CommandLine: the `ombrelo` program's entry point. Parses the arguments with
// CLI11, runs one command and turns its outcome into the exit status:
// 0 success, 1 usage error, 2 failure, 3 database from a newer version.
#pragma once

namespace ombrelo {

int runCommandLine(int argc, char** argv);

} // namespace ombrelo
