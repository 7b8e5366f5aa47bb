// The debug encoder against building the same JSON by hand with Boost.JSON, and its type names
// against demangling on every use.
#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>

#include <benchmark/benchmark.h>
#include <boost/core/demangle.hpp>
#include <boost/describe.hpp>
#include <boost/json.hpp>

#include <algorithm>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/BenchMain.hpp"

namespace {

struct Reading {
  std::string sensor;
  std::string unit;
  double value;
  std::int64_t sequence;
  bool calibrated;
  std::vector<double> samples;
  std::vector<std::string> tags;
};
BOOST_DESCRIBE_STRUCT(Reading, (), (sensor, unit, value, sequence, calibrated, samples, tags))

// About 11 MB of compact JSON: 50,000 described structs with text, numbers and nested arrays.
const std::vector<Reading>& readings() {
  static const std::vector<Reading> data = [] {
    std::vector<Reading> list;
    list.reserve(50'000);
    for (int i = 0; i < 50'000; ++i) {
      Reading r{"sensor-" + std::to_string(i % 977) + "-north-wing-floor-" + std::to_string(i % 13),
                i % 2 ? "celsius" : "kilopascal",
                i * 0.37 + 0.125,
                i,
                i % 3 == 0,
                {},
                {}};
      for (int s = 0; s < 12; ++s) r.samples.push_back(i * 0.001 + s * 1.5);
      for (int t = 0; t < 4; ++t) r.tags.push_back("tag-" + std::to_string((i + t) % 101));
      list.push_back(std::move(r));
    }
    return list;
  }();
  return data;
}

VeltoDynamicDebugEncoderOptions compact() {
  using Data = VeltoDynamicDebugEncoderOptions::DataContentsBehaviour;
  return VeltoDynamicDebugEncoderOptions(Data::excludeContents(), false, true, false, false, false, false, false, false, false);
}

void BM_VeltoDebugEncodeObjectGraph(benchmark::State& state) {
  const auto& data = readings();
  const auto options = compact();
  std::size_t bytes = 0;
  for (auto _ : state) {
    auto encoded = VeltoDynamicDebugEncoder::encodeToData(data, options);
    bytes = encoded.value().size();
    benchmark::DoNotOptimize(encoded);
  }
  state.counters["MB"] = static_cast<double>(bytes) / 1e6;
}
BENCHMARK(BM_VeltoDebugEncodeObjectGraph)->Unit(benchmark::kMillisecond);

// Anchor: the same document built by hand from the same structs, then serialised.
void BM_BoostJsonByHandObjectGraph(benchmark::State& state) {
  const auto& data = readings();
  std::size_t bytes = 0;
  for (auto _ : state) {
    boost::json::array array;
    array.reserve(data.size());
    for (const auto& r : data) {
      boost::json::object object;
      object["sensor"] = r.sensor;
      object["unit"] = r.unit;
      object["value"] = r.value;
      object["sequence"] = r.sequence;
      object["calibrated"] = r.calibrated;
      object["samples"] = boost::json::array(r.samples.begin(), r.samples.end());
      boost::json::array tags;
      for (const auto& t : r.tags) tags.emplace_back(t);
      object["tags"] = std::move(tags);
      array.emplace_back(std::move(object));
    }
    std::string text = boost::json::serialize(array);
    bytes = text.size();
    benchmark::DoNotOptimize(text);
  }
  state.counters["MB"] = static_cast<double>(bytes) / 1e6;
}
BENCHMARK(BM_BoostJsonByHandObjectGraph)->Unit(benchmark::kMillisecond);

// Dictionaries of n string keys, sorted: the cost must stay linear-logarithmic in n.
void BM_VeltoDebugEncodeDictionary(benchmark::State& state) {
  std::unordered_map<std::string, int> dictionary;
  for (int i = 0; i < state.range(0); ++i) dictionary.emplace("key-" + std::to_string(i * 7919), i);
  const auto options = compact().replacing({}, {}, {}, {}, {}, {}, {}, {}, true);
  for (auto _ : state) {
    auto encoded = VeltoDynamicDebugEncoder::encodeToData(dictionary, options);
    benchmark::DoNotOptimize(encoded);
  }
}
BENCHMARK(BM_VeltoDebugEncodeDictionary)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

// Anchor for the scaling: inserting the same keys into a Boost.JSON object and serialising it.
// Both sides grow the same way once the table no longer fits in cache.
void BM_BoostJsonObjectOfKeys(benchmark::State& state) {
  std::vector<std::string> keys;
  for (int i = 0; i < state.range(0); ++i) keys.push_back("key-" + std::to_string(i * 7919));
  for (auto _ : state) {
    boost::json::object object;
    for (int i = 0; i < state.range(0); ++i) object[keys[static_cast<std::size_t>(i)]] = i;
    std::string text = boost::json::serialize(object);
    benchmark::DoNotOptimize(text);
  }
}
BENCHMARK(BM_BoostJsonObjectOfKeys)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

// Anchor reading the same input: a user's hand-written sorted dump of the same unordered_map
// (pointers to the entries sorted by key, then a Boost.JSON object built and serialised). It
// pays for the map's scattered nodes as the encoder does; the anchor above reads a vector.
void BM_BoostJsonSortedFromMap(benchmark::State& state) {
  std::unordered_map<std::string, int> dictionary;
  for (int i = 0; i < state.range(0); ++i) dictionary.emplace("key-" + std::to_string(i * 7919), i);
  for (auto _ : state) {
    std::vector<const std::pair<const std::string, int>*> entries;
    entries.reserve(dictionary.size());
    for (const auto& entry : dictionary) entries.push_back(&entry);
    std::sort(entries.begin(), entries.end(), [](const auto* a, const auto* b) { return a->first < b->first; });
    boost::json::object object;
    object.reserve(entries.size());
    for (const auto* entry : entries) object[entry->first] = entry->second;
    std::string text = boost::json::serialize(object);
    benchmark::DoNotOptimize(text);
  }
}
BENCHMARK(BM_BoostJsonSortedFromMap)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

}  // namespace

VELTO_BENCH_RATIO(BM_BoostJsonSortedFromMap/100000, BM_BoostJsonSortedFromMap/10000,
                  "growth of a hand-written sorted dump of the same map");
VELTO_BENCH_RATIO(BM_BoostJsonObjectOfKeys/100000, BM_BoostJsonObjectOfKeys/10000,
                  "the substrate's own growth for 10 times the keys");
VELTO_BENCH_RATIO(BM_VeltoDebugEncodeObjectGraph, BM_BoostJsonByHandObjectGraph,
                  "time vs Boost.JSON by hand (target <= 1.0: as fast as building the tree by hand)");
VELTO_BENCH_RATIO(BM_VeltoDebugEncodeDictionary/100000, BM_VeltoDebugEncodeDictionary/10000,
                  "100,000 vs 10,000 keys (target <= 1.1 times the substrate's own growth above)");
VELTO_BENCH_RATIO(BM_VeltoDebugEncodeDictionary/10000, BM_BoostJsonObjectOfKeys/10000,
                  "10,000 sorted keys vs Boost.JSON inserting and writing them");
VELTO_BENCH_RATIO(BM_VeltoDebugEncodeDictionary/100000, BM_BoostJsonObjectOfKeys/100000,
                  "100,000 sorted keys vs Boost.JSON inserting and writing them");

// ---- type names ---------------------------------------------------------------------------------

namespace {

struct Base {
  virtual ~Base() = default;
};
template <int N>
struct Derived final : Base {};

// Names of dynamic types, as "__type" asks for every object seen through a base: a table of
// polymorphic objects of eight types, mixed.
std::vector<std::unique_ptr<Base>> mixedObjects() {
  std::vector<std::unique_ptr<Base>> objects;
  for (int i = 0; i < 1024; ++i) {
    switch (i % 8) {
      case 0: objects.push_back(std::make_unique<Derived<0>>()); break;
      case 1: objects.push_back(std::make_unique<Derived<1>>()); break;
      case 2: objects.push_back(std::make_unique<Derived<2>>()); break;
      case 3: objects.push_back(std::make_unique<Derived<3>>()); break;
      case 4: objects.push_back(std::make_unique<Derived<4>>()); break;
      case 5: objects.push_back(std::make_unique<Derived<5>>()); break;
      case 6: objects.push_back(std::make_unique<Derived<6>>()); break;
      default: objects.push_back(std::make_unique<Derived<7>>()); break;
    }
  }
  return objects;
}

// The cleaned name from the process-wide table (a shared lock and a hash lookup).
void BM_VeltoTypeNameOfDynamicType(benchmark::State& state) {
  const auto objects = mixedObjects();
  for (auto _ : state) {
    for (const auto& object : objects) {
      const auto& pointee = *object;
      benchmark::DoNotOptimize(velto::detail::typeName(typeid(pointee)).size());
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(objects.size()));
}
BENCHMARK(BM_VeltoTypeNameOfDynamicType);

// Anchor: what a user would write, demangling on every use.
void BM_BoostCoreDemangle(benchmark::State& state) {
  const auto objects = mixedObjects();
  for (auto _ : state) {
    for (const auto& object : objects) {
      const auto& pointee = *object;
      benchmark::DoNotOptimize(boost::core::demangle(typeid(pointee).name()).size());
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(objects.size()));
}
BENCHMARK(BM_BoostCoreDemangle);

}  // namespace

VELTO_BENCH_RATIO(BM_VeltoTypeNameOfDynamicType, BM_BoostCoreDemangle,
                  "cached clean name vs demangling each time (target <= 0.25)");
