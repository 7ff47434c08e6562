#include "bench/recorder.h"

#include <algorithm>
#include <utility>

#include "bench/stamp.h"

namespace bench {

double Window::delayUs(double share) const {
    if (delays_us.empty()) {
        return 0;
    }
    const auto last = static_cast<double>(delays_us.size() - 1);
    return delays_us[static_cast<std::size_t>(share * last)];
}

void Recorder::take(const char *message, std::size_t bytes, std::uint64_t arrival_ns) {
    if (bytes < sizeof(Stamp)) {
        return;
    }
    const Stamp stamp = getStamp(message);
    const std::lock_guard lock(mutex);
    if (first_arrival_ns == 0) {
        first_arrival_ns = arrival_ns;
    }
    if (window.payloads == 0) {
        first_sequence = stamp.sequence;
        last_sequence = stamp.sequence;
    }
    last_sequence = std::max(last_sequence, stamp.sequence);
    ++window.payloads;
    window.bytes += bytes;
    window.delays_us.push_back(
        static_cast<double>(static_cast<std::int64_t>(arrival_ns - stamp.sent_ns)) / 1000);
}

void Recorder::startWindow() {
    endWindow();
}

Window Recorder::endWindow() {
    Window ended;
    {
        const std::lock_guard lock(mutex);
        ended = std::exchange(window, {});
        if (ended.payloads > 0) {
            ended.lost = last_sequence - first_sequence + 1 - ended.payloads;
        }
    }
    std::sort(ended.delays_us.begin(), ended.delays_us.end());
    return ended;
}

std::uint64_t Recorder::firstArrivalNs() const {
    const std::lock_guard lock(mutex);
    return first_arrival_ns;
}

std::uint64_t Recorder::payloads() const {
    const std::lock_guard lock(mutex);
    return window.payloads;
}

double median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

}  // namespace bench
