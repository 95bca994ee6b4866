// Writing and reading XML, by the simulator's CoreFoundation and by libplist.
#include "platform/cf_ownership.hpp"

#include <benchmark/benchmark.h>
#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace {

using namespace qnrescue;

// Twenty entries of all types.
// clang-format off
constexpr std::string_view document = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>AutoBootDelay</key>
	<integer>0</integer>
	<key>BoardID</key>
	<integer>-1</integer>
	<key>BootImageType</key>
	<string>UserOrInternal</string>
	<key>ChipID</key>
	<integer>32800</integer>
	<key>CreateFilesystemPartitions</key>
	<true/>
	<key>DFUFileType</key>
	<string>RELEASE</string>
	<key>ECID</key>
	<integer>8571206789</integer>
	<key>Ended</key>
	<date>2023-03-08T20:26:40Z</date>
	<key>FlashNOR</key>
	<true/>
	<key>KernelCacheType</key>
	<string>Release</string>
	<key>Name</key>
	<string>Téléphone de l’atelier &amp; plus</string>
	<key>Nonce</key>
	<data>
	q80BI0VniavN7wEjRWeJq80BI0VniavN7wEjRWeJqw==
	</data>
	<key>Operations</key>
	<array>
		<integer>3</integer>
		<integer>4</integer>
		<integer>201</integer>
	</array>
	<key>ProductString</key>
	<string>Device in recovery mode</string>
	<key>Progress</key>
	<integer>48</integer>
	<key>RestoreBootArgs</key>
	<string>rd=md0 nand-enable-reformat=1 -progress</string>
	<key>SerialNumber</key>
	<string>C39ABCDEF012</string>
	<key>Speed</key>
	<real>1.5</real>
	<key>Started</key>
	<date>2023-03-08T20:20:00Z</date>
	<key>UpdateBaseband</key>
	<false/>
</dict>
</plist>
)";
// clang-format on

struct plist_deleter {
    void operator()(plist_t plist) const { plist_free(plist); }
};
using plist_owner = std::unique_ptr<void, plist_deleter>;

cf_owner<CFDataRef> document_data() {
    return adopt(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(document.data()),
                              static_cast<CFIndex>(document.size())));
}

cf_owner<CFPropertyListRef> read_by_simulator(CFDataRef data) {
    auto value =
        adopt(CFPropertyListCreateWithData(kCFAllocatorDefault, data, 0, nullptr, nullptr));
    if (!value) {
        throw std::runtime_error("the simulator cannot read the document");
    }
    return value;
}

plist_owner read_by_libplist() {
    plist_t value = nullptr;
    plist_from_xml(document.data(), static_cast<std::uint32_t>(document.size()), &value);
    if (value == nullptr) {
        throw std::runtime_error("libplist cannot read the document");
    }
    return plist_owner(value);
}

void simulator_writes(benchmark::State & state) {
    auto const value = read_by_simulator(document_data().get());
    for (auto _ : state) {
        auto const data = adopt(CFPropertyListCreateData(
            kCFAllocatorDefault, value.get(), kCFPropertyListXMLFormat_v1_0, 0, nullptr));
        benchmark::DoNotOptimize(data.get());
    }
    state.SetItemsProcessed(state.iterations());
}

void libplist_writes(benchmark::State & state) {
    auto const value = read_by_libplist();
    for (auto _ : state) {
        char * text = nullptr;
        std::uint32_t length = 0;
        plist_to_xml(value.get(), &text, &length);
        benchmark::DoNotOptimize(text);
        std::free(text);
    }
    state.SetItemsProcessed(state.iterations());
}

void simulator_reads(benchmark::State & state) {
    auto const data = document_data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(read_by_simulator(data.get()));
    }
    state.SetItemsProcessed(state.iterations());
}

void libplist_reads(benchmark::State & state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(read_by_libplist());
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(simulator_writes)->Name("write/simulator");
BENCHMARK(libplist_writes)->Name("write/libplist");
BENCHMARK(simulator_reads)->Name("read/simulator");
BENCHMARK(libplist_reads)->Name("read/libplist");

} // namespace
