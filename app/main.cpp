#include <iostream>
#include <string>
#include <vector>

#include "app/startup.h"
#include "app/ui/application.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  auto options = lumivale::app::parseStartup(args, std::cerr);
  if (!options) return 2;
  if (options->mode == lumivale::app::StartupOptions::Mode::normal) {
    return lumivale::ui::runApplication(argc, argv, *options);
  }
  if (auto status = lumivale::app::startUp(*options, std::cout, std::cerr)) return *status;
  return 0;
}
