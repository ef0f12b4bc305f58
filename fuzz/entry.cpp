// The entry points that libFuzzer calls.

#include "fuzz/fuzz.h"
#include "logging/logging.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // A sink, so that every message is formatted.
    logging::SetSink([](logging::Level, const std::string&, const std::string&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzOne(std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
