// How a run fails. Used by everything in this folder.
#pragma once

/// Prints the text, like printf, and ends the process, so that the fuzzer keeps the input.
[[noreturn]] void Fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Fails with the text if `condition` is not true.
#define REQUIRE(condition, ...) ((condition) ? static_cast<void>(0) : Fail(__VA_ARGS__))
