#include <iostream>
#include <string>
#include <vector>

#include "app/startup.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  auto options = lumivale::app::parseStartup(args, std::cerr);
  if (!options) return 2;
  if (auto status = lumivale::app::startUp(*options, std::cout, std::cerr)) return *status;
  return 0;
}
