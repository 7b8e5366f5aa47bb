// Endpoint signatures against doing the same work by hand with Boost.URL and the standard
// library: building one, parsing one back, hashing one as a table key.
#include <velto/networking/VeltoEndpointSignature.hpp>

#include <benchmark/benchmark.h>
#include <boost/url/encode.hpp>
#include <boost/url/grammar/lut_chars.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/rfc/unreserved_chars.hpp>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "support/BenchMain.hpp"

namespace {

const boost::urls::url& address() {
  static const boost::urls::url url("https://api.example.com/v2/catalogue/items");
  return url;
}

// A typical list: a search text with a space, a page number, a filter, a sort key, a locale.
const std::vector<std::string>& descriptions() {
  static const std::vector<std::string> list{"running shoes", "3", "size=42", "priceAscending", "en_GB"};
  return list;
}

// Signature construction from ready descriptions: encode, drop, sort, join, hash once.
void BM_VeltoEndpointSignatureConstruct(benchmark::State& state) {
  const std::vector<VeltoSignatureParameter> parameters(descriptions().begin(), descriptions().end());
  for (auto _ : state) {
    VeltoEndpointSignature signature(address(), parameters);
    benchmark::DoNotOptimize(signature);
  }
}
BENCHMARK(BM_VeltoEndpointSignatureConstruct);

// Anchor: the same string by hand: Boost.URL encode with the same character set, sort, join,
// std::hash.
void BM_BoostUrlEncodeSortJoinHash(benchmark::State& state) {
  static constexpr auto passing = boost::urls::unreserved_chars + boost::urls::grammar::lut_chars("!$'()*+,;=:[]");
  for (auto _ : state) {
    std::vector<std::string> encoded;
    encoded.reserve(descriptions().size());
    for (const std::string& description : descriptions()) encoded.push_back(boost::urls::encode(description, passing));
    std::sort(encoded.begin(), encoded.end());
    std::string joined(address().buffer());
    joined += '?';
    for (std::size_t i = 0; i < encoded.size(); ++i) {
      if (i > 0) joined += '&';
      joined += encoded[i];
    }
    const std::size_t hash = std::hash<std::string>()(joined);
    benchmark::DoNotOptimize(joined);
    benchmark::DoNotOptimize(hash);
  }
}
BENCHMARK(BM_BoostUrlEncodeSortJoinHash);

const std::string& representation() {
  static const std::string text =
      VeltoEndpointSignature(address(), std::vector<VeltoSignatureParameter>(descriptions().begin(), descriptions().end()))
          .stringRepresentation();
  return text;
}

// Parsing a representation back: split, URI-reference check, then construction as above.
void BM_VeltoEndpointSignatureParse(benchmark::State& state) {
  for (auto _ : state) {
    auto parsed = VeltoEndpointSignature::make(representation());
    benchmark::DoNotOptimize(parsed);
  }
}
BENCHMARK(BM_VeltoEndpointSignatureParse);

// Anchor: parse_uri_reference of the URL part and a split of the parameters into strings.
void BM_BoostUrlParseAndSplit(benchmark::State& state) {
  for (auto _ : state) {
    const std::string_view text = representation();
    const std::size_t mark = text.find('?');
    auto url = boost::urls::parse_uri_reference(text.substr(0, mark));
    std::vector<std::string> pieces;
    std::string_view rest = text.substr(mark + 1);
    for (std::size_t amp; (amp = rest.find('&')) != std::string_view::npos; rest.remove_prefix(amp + 1)) {
      pieces.emplace_back(rest.substr(0, amp));
    }
    pieces.emplace_back(rest);
    benchmark::DoNotOptimize(url);
    benchmark::DoNotOptimize(pieces);
  }
}
BENCHMARK(BM_BoostUrlParseAndSplit);

// Hashing a signature as a table key: one integer mixed, however long the string.
void BM_VeltoEndpointSignatureHash(benchmark::State& state) {
  const VeltoEndpointSignature signature = VeltoEndpointSignature::make(representation()).value();
  const std::hash<VeltoEndpointSignature> hasher;
  for (auto _ : state) {
    benchmark::DoNotOptimize(&signature);
    benchmark::DoNotOptimize(hasher(signature));
  }
}
BENCHMARK(BM_VeltoEndpointSignatureHash);

// Anchor: hashing the representation string itself.
void BM_StdHashString(benchmark::State& state) {
  const std::string& text = representation();
  const std::hash<std::string> hasher;
  for (auto _ : state) {
    benchmark::DoNotOptimize(&text);
    benchmark::DoNotOptimize(hasher(text));
  }
}
BENCHMARK(BM_StdHashString);

}  // namespace

VELTO_BENCH_RATIO(BM_VeltoEndpointSignatureConstruct, BM_BoostUrlEncodeSortJoinHash,
                  "signature construction vs the same string by hand (copies the URL as well)");
VELTO_BENCH_RATIO(BM_VeltoEndpointSignatureParse, BM_BoostUrlParseAndSplit,
                  "parse vs URI-reference check + split (also sorts, joins, hashes, copies the URL)");
VELTO_BENCH_RATIO(BM_VeltoEndpointSignatureHash, BM_StdHashString, "hashing a signature vs hashing its string");
