#pragma once

#include <cstddef>
#include <cstdint>

/// What libFuzzer calls: once for each input, and once before the first. A target ends the process to report
/// a finding (Require.h) and returns 0 otherwise.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments);
