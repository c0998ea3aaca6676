#pragma once

#include "tests/support/StandIns.h"

#include <gmock/gmock.h>
#include <sys/select.h>

#include <cstddef>
#include <vector>

namespace ZNORBTEST {

/// Watches and steers the calls of `select` in this program, so that tests learn which time-outs are asked
/// for without having to wait for them.
///
/// One recorder at a time. Any thread may call `select` meanwhile; the recorder itself belongs to the test's
/// thread. A child of a fork steers and records for itself.
class SelectRecorder {
public:
    struct Call {
        int highestPlusOne;
        std::vector<int> reading; ///< the descriptors to be read, ascending
        bool onlyReading;         ///< neither writing nor exceptional conditions were asked for
        time_t seconds;           ///< of the time-out; -1 without one
        decltype(timeval::tv_usec) microseconds;
    };

    SelectRecorder();

    /// Makes every wait from now on shorter by this factor.
    static void divideWaitsBy(long divisor);

    /// Lets calls fail with this error instead of waiting: the next `times` ones, after `skipped` that do
    /// what they are told.
    static void fail(int error, unsigned times = 1, unsigned skipped = 0);

    /// Lets the next call return 1 with empty sets: something is ready, but nothing that was asked for.
    static void returnOneWithoutDescriptor();

    /// All calls that were made since the recorder was made, in order, those under way included.
    static std::vector<Call> calls();

    /// Waits until that many calls have been made. False when they were not within the usual bound.
    static bool awaitCalls(std::size_t count);

private:
    const InPlaceOf<::select> m_waits;
};

/// Matches a wait of that many seconds for something to read from this descriptor, and for nothing else.
testing::Matcher<const SelectRecorder::Call&> isWaitFor(int descriptor, long seconds);

} // namespace ZNORBTEST
