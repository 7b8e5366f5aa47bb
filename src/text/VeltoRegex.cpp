#include "velto/text/VeltoRegex.hpp"

#include <unicode/regex.h>
#include <unicode/unistr.h>
#include <unicode/utypes.h>

#include <mutex>
#include <optional>
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

namespace {

// One parsed replacement template: literal UTF-16 text, and group references (group >= 0).
struct TemplatePiece {
  icu::UnicodeString literal;
  std::int32_t group = -1;
};

// Parses `replacementTemplate` for a pattern with `groupCount` groups. Empty on a reference to
// a group the pattern does not have.
std::optional<std::vector<TemplatePiece>> parseTemplate(const icu::UnicodeString& replacementTemplate,
                                                        std::int32_t groupCount) {
  std::vector<TemplatePiece> pieces(1);
  const auto isDigit = [](char16_t unit) { return unit >= u'0' && unit <= u'9'; };
  const std::int32_t length = replacementTemplate.length();
  for (std::int32_t index = 0; index < length;) {
    const char16_t unit = replacementTemplate.charAt(index);
    if (unit == u'\\' && index + 1 < length) {
      // Escapes one code point, so a surrogate pair stays whole.
      const std::int32_t next = replacementTemplate.moveIndex32(index + 1, 1);
      pieces.back().literal.append(replacementTemplate, index + 1, next - index - 1);
      index = next;
    } else if (unit == u'$' && index + 1 < length && isDigit(replacementTemplate.charAt(index + 1))) {
      std::int32_t group = replacementTemplate.charAt(index + 1) - u'0';
      if (group > groupCount) return std::nullopt;
      index += 2;
      // Longest run of digits that still names a group: with 3 groups "$12" is group 1, then "2".
      while (index < length && isDigit(replacementTemplate.charAt(index))) {
        const std::int32_t longer = group * 10 + (replacementTemplate.charAt(index) - u'0');
        if (longer > groupCount) break;
        group = longer;
        ++index;
      }
      pieces.back().group = group;
      pieces.emplace_back();
    } else {
      pieces.back().literal.append(unit);
      ++index;
    }
  }
  return pieces;
}

}  // namespace

VeltoResult<std::string> VeltoRegex::replacingMatches(std::string_view string, std::string_view replacementTemplate) const {
  const icu::UnicodeString text = utf16(string);
  const auto matcher = engine_->matcher(text);
  UErrorCode status = matcher ? U_ZERO_ERROR : U_MEMORY_ALLOCATION_ERROR;
  icu::UnicodeString replaced;
  if (matcher) {
    // The template is read only once there is a match, so a string without one comes back
    // unchanged whatever the template says.
    std::optional<std::vector<TemplatePiece>> pieces;
    std::int32_t copiedUpTo = 0;
    while (U_SUCCESS(status) && matcher->find(status) && U_SUCCESS(status)) {
      if (!pieces) {
        pieces = parseTemplate(utf16(replacementTemplate), matcher->groupCount());
        if (!pieces) {
          status = U_INDEX_OUTOFBOUNDS_ERROR;
          break;
        }
      }
      const std::int32_t start = matcher->start(status);
      replaced.append(text, copiedUpTo, start - copiedUpTo);
      for (const TemplatePiece& piece : *pieces) {
        replaced.append(piece.literal);
        if (piece.group >= 0) replaced.append(matcher->group(piece.group, status));
      }
      copiedUpTo = matcher->end(status);
    }
    replaced.append(text, copiedUpTo, text.length() - copiedUpTo);
  }
  if (U_FAILURE(status)) {
    return VeltoResult<std::string>::fromMessage("Invalid template",
                                                 {{"string", std::string(string)},
                                                  {"template", std::string(replacementTemplate)},
                                                  {"errorName", std::string(u_errorName(status))}},
                                                 nullptr, VELTO_SITE(kFile, "replacingMatches(in:with:)"));
  }
  return utf8(replaced);
}
