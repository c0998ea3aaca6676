#pragma once

#include "foundation/streams/InputStream.h"
#include "tests/support/Rows.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace ZNORBTEST {

/// What a string reads behind a read that has not touched it.
inline const std::string unchanged = "unchanged";

inline std::string characterOf(Common::InputStream& stream) {
    std::string out = unchanged;
    stream.getCharacter(out);
    return out;
}

inline std::string lineOf(Common::InputStream& stream) {
    std::string out = unchanged;
    stream.getLine(out);
    return out;
}

inline std::string allOf(Common::InputStream& stream) {
    std::string out = unchanged;
    Common::InputStream::readBuffer(stream, out); // which gets all
    return out;
}

/// Whether the stream has met its end, as a text.
inline std::string endOf(Common::InputStream& stream) {
    return stream.isEof() ? "end" : "no end";
}

/// One read of a stream and what it must give.
struct Read {
    std::string (*of)(Common::InputStream& stream);
    std::string expected;
};

inline Read character(const std::string& expected) {
    return {characterOf, expected};
}

inline Read line(const std::string& expected) {
    return {lineOf, expected};
}

inline Read all(const std::string& expected) {
    return {allOf, expected};
}

inline const Read atEnd = {endOf, "end"};
inline const Read notAtEnd = {endOf, "no end"};

/// What a stream holds, and the reads of it.
using Reading = Row<std::string, std::vector<Read>>;

inline void expectReads(Common::InputStream& stream, const std::vector<Read>& reads) {
    for (std::size_t i = 0; i < reads.size(); ++i) {
        EXPECT_EQ(reads[i].of(stream), reads[i].expected) << "read " << i;
    }
}

} // namespace ZNORBTEST
