#include "velto/text/AttributedStringCharacter.hpp"

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <memory>

namespace {

constexpr char kFile[] = "Extensions/Foundation/NSAttributedString+";

}  // namespace

VeltoResult<std::string> character(std::string_view attributedString, std::int64_t index) {
  const auto noCharacter = [&] {
    return VeltoResult<std::string>::fromMessage("Index yielded no character",
                                                 {{"attributedString", std::string(attributedString)}}, nullptr,
                                                 VELTO_SITE(kFile, "character(at:)"));
  };
  if (index < 0) return noCharacter();
  const icu::UnicodeString text = icu::UnicodeString::fromUTF8(
      icu::StringPiece(attributedString.data(), static_cast<std::int32_t>(attributedString.size())));
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> breaks(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  if (U_FAILURE(status) || !breaks) return noCharacter();
  breaks->setText(text);
  std::int32_t start = breaks->first();
  for (std::int64_t skipped = 0; skipped < index && start != icu::BreakIterator::DONE; ++skipped) start = breaks->next();
  if (start == icu::BreakIterator::DONE) return noCharacter();
  const std::int32_t end = breaks->following(start);
  if (end == icu::BreakIterator::DONE) return noCharacter();
  std::string out;
  text.tempSubStringBetween(start, end).toUTF8String(out);
  return out;
}
