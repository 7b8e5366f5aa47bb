// Values and text: VeltoRegex::test beside raw ICU and std::regex, VeltoBinaryVersion::make
// beside a hand-rolled split-and-strtoull parser.
#include <benchmark/benchmark.h>

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include <velto/text/VeltoBinaryVersion.hpp>
#include <velto/text/VeltoRegex.hpp>

#include "support/BenchMain.hpp"

namespace {

constexpr char kDigitsPattern[] = R"(^\d+$)";
constexpr char kWordPattern[] = R"([a-z]+@[a-z]+\.com)";
const std::string kShortText = "1234567";
const std::string kLongText =
    "Please write to the maintainers of this library at team@example.com with any questions you may have.";

struct Case {
  const char* pattern;
  const std::string* text;
};
const Case kCases[] = {{kDigitsPattern, &kShortText}, {kWordPattern, &kLongText}};

// ---- regex: whole-string test ----

// Stresses the wrapper: UTF-8 to UTF-16, one matcher per call, find.
void BM_VeltoRegexTest(benchmark::State& state) {
  const Case& c = kCases[state.range(0)];
  const auto regex = VeltoRegex::make(c.pattern).value();
  for (auto _ : state) benchmark::DoNotOptimize(regex->test(*c.text));
}
BENCHMARK(BM_VeltoRegexTest)->Arg(0)->Arg(1);

// The same work written against ICU directly: a compiled pattern, a matcher per call.
void BM_IcuMatcherTest(benchmark::State& state) {
  const Case& c = kCases[state.range(0)];
  UParseError parseError{};
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexPattern> pattern(icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(c.pattern), 0, parseError, status));
  for (auto _ : state) {
    const icu::UnicodeString text = icu::UnicodeString::fromUTF8(*c.text);
    UErrorCode matchStatus = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(text, matchStatus));
    benchmark::DoNotOptimize(matcher->find(0, matchStatus));
  }
}
BENCHMARK(BM_IcuMatcherTest)->Arg(0)->Arg(1);

// ICU at its cheapest: one matcher reset onto each text (not shareable between threads).
void BM_IcuReusedMatcherTest(benchmark::State& state) {
  const Case& c = kCases[state.range(0)];
  UErrorCode status = U_ZERO_ERROR;
  icu::RegexMatcher matcher(icu::UnicodeString::fromUTF8(c.pattern), 0, status);
  for (auto _ : state) {
    const icu::UnicodeString text = icu::UnicodeString::fromUTF8(*c.text);
    matcher.reset(text);
    UErrorCode matchStatus = U_ZERO_ERROR;
    benchmark::DoNotOptimize(matcher.find(0, matchStatus));
  }
}
BENCHMARK(BM_IcuReusedMatcherTest)->Arg(0)->Arg(1);

void BM_StdRegexSearch(benchmark::State& state) {
  const Case& c = kCases[state.range(0)];
  const std::regex regex(c.pattern);
  for (auto _ : state) benchmark::DoNotOptimize(std::regex_search(*c.text, regex));
}
BENCHMARK(BM_StdRegexSearch)->Arg(0)->Arg(1);

VELTO_BENCH_RATIO(BM_VeltoRegexTest/0, BM_IcuMatcherTest/0, "short text vs ICU, matcher per call (target <= 1.11, i.e. >= 0.9x speed)");
VELTO_BENCH_RATIO(BM_VeltoRegexTest/1, BM_IcuMatcherTest/1, "100-char text vs ICU, matcher per call (target <= 1.11)");
VELTO_BENCH_RATIO(BM_VeltoRegexTest/0, BM_IcuReusedMatcherTest/0, "short text vs one reused ICU matcher");
VELTO_BENCH_RATIO(BM_VeltoRegexTest/1, BM_IcuReusedMatcherTest/1, "100-char text vs one reused ICU matcher");
VELTO_BENCH_RATIO(BM_VeltoRegexTest/0, BM_StdRegexSearch/0, "short text vs std::regex");
VELTO_BENCH_RATIO(BM_VeltoRegexTest/1, BM_StdRegexSearch/1, "100-char text vs std::regex");

// ---- binary version parsing ----

const char* const kVersions[] = {"1.4.12", "10.15.7.19041.1", "1.2.x"};

// Split on ".", check every token with the component expression (skipped for ASCII digits),
// convert, collect; a failure builds its error with the arguments.
void BM_VeltoBinaryVersionMake(benchmark::State& state) {
  const char* text = kVersions[state.range(0)];
  for (auto _ : state) benchmark::DoNotOptimize(VeltoBinaryVersion::make(text));
}
BENCHMARK(BM_VeltoBinaryVersionMake)->Arg(0)->Arg(1)->Arg(2);

// What a caller would write by hand: split on ".", strtoull each token, reject anything that
// is empty, not all digits or out of range. No error detail.
std::vector<std::uint64_t> handRolledParse(const std::string& text, bool& ok) {
  std::vector<std::uint64_t> components;
  std::size_t start = 0;
  ok = true;
  for (;;) {
    const std::size_t dot = text.find('.', start);
    const std::string token = text.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
    if (token.empty() || token.find_first_not_of("0123456789") != std::string::npos) {
      ok = false;
      return {};
    }
    errno = 0;
    const unsigned long long value = std::strtoull(token.c_str(), nullptr, 10);
    if (errno == ERANGE) {
      ok = false;
      return {};
    }
    components.push_back(value);
    if (dot == std::string::npos) return components;
    start = dot + 1;
  }
}

void BM_HandRolledVersionParse(benchmark::State& state) {
  const std::string text = kVersions[state.range(0)];
  bool ok = false;
  for (auto _ : state) {
    benchmark::DoNotOptimize(handRolledParse(text, ok));
    benchmark::DoNotOptimize(ok);
  }
}
BENCHMARK(BM_HandRolledVersionParse)->Arg(0)->Arg(1)->Arg(2);

VELTO_BENCH_RATIO(BM_VeltoBinaryVersionMake/0, BM_HandRolledVersionParse/0, "\"1.4.12\" vs split+strtoull");
VELTO_BENCH_RATIO(BM_VeltoBinaryVersionMake/1, BM_HandRolledVersionParse/1, "\"10.15.7.19041.1\" vs split+strtoull");
VELTO_BENCH_RATIO(BM_VeltoBinaryVersionMake/2, BM_HandRolledVersionParse/2, "invalid \"1.2.x\": full error vs bare rejection");

}  // namespace
