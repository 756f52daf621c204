// How busy the machine is.
#include "load_average.h"

#include <algorithm>
#include <fstream>
#include <thread>

namespace Vard {

double loadAverage() {
    double oneMinute = 0;
    double fiveMinutes = 0;
    double fifteenMinutes = 0;
    std::ifstream file("/proc/loadavg");
    if (!(file >> oneMinute >> fiveMinutes >> fifteenMinutes) || fiveMinutes <= 0) {
        return 0;
    }
    return fiveMinutes * 100 / std::max(std::thread::hardware_concurrency(), 1U);
}

} // namespace Vard
