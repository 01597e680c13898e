#include "app/CommandLine.h"

int main(int argc, char** argv) { return ombrelo::runCommandLine(argc, argv); }
