#include "engine/util/clock.h"

#include <chrono>

namespace lumivale {

double nowSeconds() {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

}  // namespace lumivale
