#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "cli/cli.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  return lumivale::cli::run(args, std::cout, std::cerr, isatty(STDERR_FILENO) != 0,
                            isatty(STDIN_FILENO) != 0);
}
