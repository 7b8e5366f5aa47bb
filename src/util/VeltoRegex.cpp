#include "velto/util/VeltoRegex.hpp"

#include <unicode/regex.h>
#include <unicode/unistr.h>
#include <unicode/utypes.h>

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

struct RegexEngine {
  std::unique_ptr<icu::RegexPattern> pattern;

  // A matcher over `text`, which must outlive it. Null only when ICU runs out of memory.
  [[nodiscard]] std::unique_ptr<icu::RegexMatcher> matcher(const icu::UnicodeString& text) const {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> made(pattern->matcher(text, status));
    if (U_FAILURE(status)) return nullptr;
    return made;
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
