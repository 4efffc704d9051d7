#include "EditSnapshot.h"

namespace ql {
namespace {

using Clock = std::chrono::system_clock;
using Seconds = std::chrono::duration<double>;

// 2001-01-01T00:00:00Z.
constexpr Clock::time_point referenceDate{std::chrono::seconds(978307200)};
// The clock counts nanoseconds in 64 bits, about ±292 years around 1970; dates beyond that (and
// well inside it, for headroom) are damage, not photos.
constexpr double furthestSeconds = 8.0e9;

}  // namespace

bool Codec<Clock::time_point>::read(const Json& j, Clock::time_point& out) {
    double seconds = 0;
    if (!Codec<double>::read(j, seconds) || std::abs(seconds) > furthestSeconds) return false;
    out = referenceDate + std::chrono::round<Clock::duration>(Seconds(seconds));
    return true;
}

OrderedJson Codec<Clock::time_point>::write(Clock::time_point t) {
    return Seconds(t - referenceDate).count();
}

}  // namespace ql
