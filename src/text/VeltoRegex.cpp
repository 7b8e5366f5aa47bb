#include "velto/text/VeltoRegex.hpp"

#include <unicode/regex.h>
#include <unicode/unistr.h>
#include <unicode/utypes.h>

#include <mutex>
#include <vector>

namespace {

constexpr char kFile[] = "Util/VeltoRegex";

icu::UnicodeString utf16(std::string_view text) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

}  // namespace

namespace velto::detail {

// The compiled pattern plus a pool of idle matchers. A matcher is the mutable half of ICU's
// regex; reusing one saves allocating its state on every call. Matchers are leased under a
// mutex held only to pop and push, so any number of threads can match at once; the pool grows
// to the largest number of concurrent callers and lives as long as the regex.
struct RegexEngine {
  std::unique_ptr<icu::RegexPattern> pattern;
  mutable std::mutex mutex;
  mutable std::vector<std::unique_ptr<icu::RegexMatcher>> idle;

  class Lease {
   public:
    Lease(const RegexEngine& engine, std::unique_ptr<icu::RegexMatcher> matcher) noexcept
        : engine_(engine), matcher_(std::move(matcher)) {}
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;
    ~Lease() {
      if (!matcher_) return;
      // Point the idle matcher at a text that outlives it rather than at the caller's.
      matcher_->reset(emptyText());
      const std::lock_guard<std::mutex> lock(engine_.mutex);
      engine_.idle.push_back(std::move(matcher_));
    }
    [[nodiscard]] icu::RegexMatcher* get() const noexcept { return matcher_.get(); }
    [[nodiscard]] icu::RegexMatcher* operator->() const noexcept { return matcher_.get(); }
    [[nodiscard]] explicit operator bool() const noexcept { return matcher_ != nullptr; }

   private:
    static const icu::UnicodeString& emptyText() {
      static const icu::UnicodeString empty;
      return empty;
    }
    const RegexEngine& engine_;
    std::unique_ptr<icu::RegexMatcher> matcher_;
  };

  // A matcher over `text`, which must outlive the lease. Empty only when ICU runs out of memory.
  [[nodiscard]] Lease matcher(const icu::UnicodeString& text) const {
    std::unique_ptr<icu::RegexMatcher> leased;
    {
      const std::lock_guard<std::mutex> lock(mutex);
      if (!idle.empty()) {
        leased = std::move(idle.back());
        idle.pop_back();
      }
    }
    if (!leased) {
      UErrorCode status = U_ZERO_ERROR;
      leased.reset(pattern->matcher(status));
      if (U_FAILURE(status)) leased.reset();
    }
    if (leased) leased->reset(text);
    return Lease(*this, std::move(leased));
  }
};

}  // namespace velto::detail

VeltoRegex::VeltoRegex(Token, std::string pattern, std::unique_ptr<const velto::detail::RegexEngine> engine) noexcept
    : pattern_(std::move(pattern)), engine_(std::move(engine)) {}

VeltoRegex::~VeltoRegex() = default;

VeltoResult<std::shared_ptr<const VeltoRegex>> VeltoRegex::make(std::string pattern) {
  UParseError parseError{};
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(utf16(pattern), 0, parseError, status));
  if (U_FAILURE(status) || !compiled) {
    return VeltoResult<std::shared_ptr<const VeltoRegex>>::fromMessage(
        "Invalid pattern",
        {{"pattern", pattern}, {"errorName", std::string(u_errorName(status))}, {"offset", std::int64_t{parseError.offset}}},
        nullptr, VELTO_SITE(kFile, "init(pattern:)"));
  }
  auto engine = std::make_unique<velto::detail::RegexEngine>();
  engine->pattern = std::move(compiled);
  return std::shared_ptr<const VeltoRegex>(std::make_shared<VeltoRegex>(Token{}, std::move(pattern), std::move(engine)));
}

bool VeltoRegex::test(std::string_view string) const {
  const icu::UnicodeString text = utf16(string);
  const auto matcher = engine_->matcher(text);
  if (!matcher) return false;
  UErrorCode status = U_ZERO_ERROR;
  return matcher->find(0, status) && U_SUCCESS(status);
}

std::vector<std::string> VeltoRegex::simpleMatches(std::string_view string) const {
  std::vector<std::string> matches;
  const icu::UnicodeString text = utf16(string);
  const auto matcher = engine_->matcher(text);
  if (!matcher) return matches;
  UErrorCode status = U_ZERO_ERROR;
  while (matcher->find(status) && U_SUCCESS(status)) {
    matches.push_back(utf8(matcher->group(status)));
  }
  return matches;
}

std::vector<std::string> VeltoRegex::simpleCaptureGroups(std::string_view string) const {
  std::vector<std::string> groups;
  const icu::UnicodeString text = utf16(string);
  const auto matcher = engine_->matcher(text);
  if (!matcher) return groups;
  UErrorCode status = U_ZERO_ERROR;
  if (!matcher->find(0, status) || U_FAILURE(status)) return groups;
  const std::int32_t count = matcher->groupCount();
  for (std::int32_t group = 1; group <= count; ++group) {
    // An unset group reports start -1 and yields an empty text.
    groups.push_back(utf8(matcher->group(group, status)));
  }
  return groups;
}

VeltoResult<std::string> VeltoRegex::replacingMatches(std::string_view string, std::string_view replacementTemplate) const {
  const icu::UnicodeString text = utf16(string);
  const auto matcher = engine_->matcher(text);
  UErrorCode status = matcher ? U_ZERO_ERROR : U_MEMORY_ALLOCATION_ERROR;
  icu::UnicodeString replaced;
  if (matcher) replaced = matcher->replaceAll(utf16(replacementTemplate), status);
  if (U_FAILURE(status)) {
    return VeltoResult<std::string>::fromMessage("Invalid template",
                                                 {{"string", std::string(string)},
                                                  {"template", std::string(replacementTemplate)},
                                                  {"errorName", std::string(u_errorName(status))}},
                                                 nullptr, VELTO_SITE(kFile, "replacingMatches(in:with:)"));
  }
  return utf8(replaced);
}
