// How fast the machine is at small pieces of text and memory, the work that documents are made of.
#include <benchmark/benchmark.h>

#include <map>
#include <string>

namespace {

void machine_speed(benchmark::State & state) {
    for (auto _ : state) {
        std::map<std::string, std::string> entries;
        for (int i = 0; i < 20; ++i) {
            entries.emplace("the key of entry " + std::to_string(i * 7919 % 20),
                            "the text of entry " + std::to_string(i));
        }
        std::string text;
        for (auto const & [key, value] : entries) {
            text += "<key>" + key + "</key>\n<string>" + value + "</string>\n";
        }
        benchmark::DoNotOptimize(text);
    }
}

BENCHMARK(machine_speed);

} // namespace
