#include "velto/text/VeltoFormattedNumberCache.hpp"

#include <utility>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/detail/Fatal.hpp"

namespace {
constexpr char kFile[] = "Formatting/VeltoFormattedNumberCache";
}  // namespace

VeltoFormattedNumberCache::VeltoFormattedNumberCache(Passkey, Threshold maxCount)
    : formattedDoubleCache_(DoubleCache::create(
          {}, true,
          [](const DoubleCacheKey& key) { return key.format()->formatDouble(key.double_(), key.localeIdentifier()); },
          maxCount)),
      formattedIntegerCache_(IntegerCache::create(
          {}, true,
          [](const IntegerCacheKey& key) { return key.format()->formatInteger(key.integer(), key.localeIdentifier()); },
          maxCount)) {}

std::shared_ptr<VeltoFormattedNumberCache> VeltoFormattedNumberCache::create(Threshold maxCount) {
  return std::make_shared<VeltoFormattedNumberCache>(Passkey{}, maxCount);
}

VeltoResult<std::string> VeltoFormattedNumberCache::formatInteger(std::int64_t integer,
                                                                  const std::shared_ptr<const VeltoIntegerFormattable>& format,
                                                                  std::string_view localeIdentifier) {
  if (!format) velto::detail::fatalStop("VeltoFormattedNumberCache::formatInteger: null format");
  VeltoResult<std::string> text = formattedIntegerCache_->get(IntegerCacheKey::Probe{format, integer, localeIdentifier});
  if (text.isFailure()) {
    text = VeltoResult<std::string>::fromError(
        text.error(),
        {{"self", weak_from_this()}, {"integer", integer}, {"format", format}, {"localeIdentifier", std::string(localeIdentifier)}},
        VELTO_SITE(kFile, "format(integer:format:localeIdentifier:)"));
  }
  return text;
}

VeltoResult<std::string> VeltoFormattedNumberCache::formatDouble(double value,
                                                                 const std::shared_ptr<const VeltoDoubleFormattable>& format,
                                                                 std::string_view localeIdentifier) {
  if (!format) velto::detail::fatalStop("VeltoFormattedNumberCache::formatDouble: null format");
  VeltoResult<std::string> text = formattedDoubleCache_->get(DoubleCacheKey::Probe{value, format, localeIdentifier});
  if (text.isFailure()) {
    text = VeltoResult<std::string>::fromError(
        text.error(),
        {{"self", weak_from_this()}, {"double", value}, {"format", format}, {"localeIdentifier", std::string(localeIdentifier)}},
        VELTO_SITE(kFile, "format(double:format:localeIdentifier:)"));
  }
  return text;
}

std::string VeltoFormattedNumberCache::debugDescription() const {
  return std::to_string(formattedDoubleCache_->count()) + " doubles, " + std::to_string(formattedIntegerCache_->count()) +
         " integers";
}
