// VeltoDynamicDebugEncoderOptions: what the debug encoder writes and how.
//
//   auto options = VeltoDynamicDebugEncoderOptions::forLogging()
//                      .replacing(VeltoOverride<DataContentsBehaviour>::noOverride(), /*includeAddresses*/ false);
//   VeltoDynamicDebugEncoder::encodeToString(value, options);
#pragma once

#include <optional>
#include <string_view>
#include <variant>

#include <boost/describe/class.hpp>

#include "velto/values/VeltoFileSize.hpp"
#include "velto/values/VeltoOverride.hpp"

/// Every option of one debug encoding. The constructor takes all ten, in order, with no
/// defaults; `forLogging()` is the preset the fallback logger uses. Regular value type.
/// Thread safety: immutable.
class VeltoDynamicDebugEncoderOptions {
 public:
  /// Whether byte buffers show their contents, and up to which size: a tagged variant with the
  /// cases `includeContents` (base64 while the size in bits is strictly below the payload's
  /// bits, else "[too large to be encoded]") and `excludeContents` (the byte count only).
  class DataContentsBehaviour {
   public:
    struct IncludeContents {
      static constexpr std::string_view caseName = "includeContents";
      VeltoFileSize limit;
      friend bool operator==(const IncludeContents&, const IncludeContents&) = default;
      BOOST_DESCRIBE_CLASS(IncludeContents, (), (limit), (), ())
    };
    struct ExcludeContents {
      static constexpr std::string_view caseName = "excludeContents";
      friend bool operator==(const ExcludeContents&, const ExcludeContents&) = default;
      BOOST_DESCRIBE_CLASS(ExcludeContents, (), (), (), ())
    };

    [[nodiscard]] static DataContentsBehaviour includeContents(VeltoFileSize limit) noexcept {
      return DataContentsBehaviour(IncludeContents{limit});
    }
    [[nodiscard]] static DataContentsBehaviour excludeContents() noexcept { return DataContentsBehaviour(ExcludeContents{}); }

    [[nodiscard]] const std::variant<IncludeContents, ExcludeContents>& cases() const noexcept { return cases_; }
    /// The size limit when contents are included; none when they are excluded.
    [[nodiscard]] std::optional<VeltoFileSize> includedLimit() const noexcept {
      if (const auto* include = std::get_if<IncludeContents>(&cases_)) return include->limit;
      return std::nullopt;
    }
    friend bool operator==(const DataContentsBehaviour&, const DataContentsBehaviour&) = default;

   private:
    explicit DataContentsBehaviour(std::variant<IncludeContents, ExcludeContents> cases) noexcept : cases_(cases) {}
    std::variant<IncludeContents, ExcludeContents> cases_;
  };

  VeltoDynamicDebugEncoderOptions(DataContentsBehaviour dataBehaviour, bool includeAddresses,
                                  bool includeChildrenOfReferenceTypes, bool includeClosures, bool includeNulls,
                                  bool includeTypes, bool obfuscateSensitiveContent, bool prettyPrint,
                                  bool sortDictionaryKeys, bool sortPropertyKeys) noexcept
      : dataBehaviour_(dataBehaviour),
        includeAddresses_(includeAddresses),
        includeChildrenOfReferenceTypes_(includeChildrenOfReferenceTypes),
        includeClosures_(includeClosures),
        includeNulls_(includeNulls),
        includeTypes_(includeTypes),
        obfuscateSensitiveContent_(obfuscateSensitiveContent),
        prettyPrint_(prettyPrint),
        sortDictionaryKeys_(sortDictionaryKeys),
        sortPropertyKeys_(sortPropertyKeys) {}

  /// Everything rendered (contents up to 1 KiB, addresses, object children, closures, nulls),
  /// sensitive content hidden, pretty-printed, dictionary entries sorted, properties in their
  /// declaration order (so an error reads message, time, uuid, then its frames), no "__type".
  [[nodiscard]] static VeltoDynamicDebugEncoderOptions forLogging() noexcept {
    return VeltoDynamicDebugEncoderOptions(DataContentsBehaviour::includeContents(VeltoFileSize::fromKibiBytes(1)), true,
                                           true, true, true, false, true, true, true, false);
  }

  /// A copy with each field replaced where its argument says so: `override` / a present value
  /// replaces, `noOverride` / absence keeps.
  [[nodiscard]] VeltoDynamicDebugEncoderOptions replacing(
      VeltoOverride<DataContentsBehaviour> dataBehaviour, std::optional<bool> includeAddresses = std::nullopt,
      std::optional<bool> includeChildrenOfReferenceTypes = std::nullopt, std::optional<bool> includeClosures = std::nullopt,
      std::optional<bool> includeNulls = std::nullopt, std::optional<bool> includeTypes = std::nullopt,
      std::optional<bool> obfuscateSensitiveContent = std::nullopt, std::optional<bool> prettyPrint = std::nullopt,
      std::optional<bool> sortDictionaryKeys = std::nullopt, std::optional<bool> sortPropertyKeys = std::nullopt) const {
    return VeltoDynamicDebugEncoderOptions(
        dataBehaviour.resolve(dataBehaviour_), includeAddresses.value_or(includeAddresses_),
        includeChildrenOfReferenceTypes.value_or(includeChildrenOfReferenceTypes_), includeClosures.value_or(includeClosures_),
        includeNulls.value_or(includeNulls_), includeTypes.value_or(includeTypes_),
        obfuscateSensitiveContent.value_or(obfuscateSensitiveContent_), prettyPrint.value_or(prettyPrint_),
        sortDictionaryKeys.value_or(sortDictionaryKeys_), sortPropertyKeys.value_or(sortPropertyKeys_));
  }

  [[nodiscard]] const DataContentsBehaviour& dataBehaviour() const noexcept { return dataBehaviour_; }
  /// Objects carry "__address" / "__previouslyEncodedAddress".
  [[nodiscard]] bool includeAddresses() const noexcept { return includeAddresses_; }
  /// Objects' stored properties are written at all.
  [[nodiscard]] bool includeChildrenOfReferenceTypes() const noexcept { return includeChildrenOfReferenceTypes_; }
  /// Closures are written as "[closure]" instead of being left out.
  [[nodiscard]] bool includeClosures() const noexcept { return includeClosures_; }
  /// Absent optionals are written as null instead of being left out.
  [[nodiscard]] bool includeNulls() const noexcept { return includeNulls_; }
  /// Structures and objects carry "__type".
  [[nodiscard]] bool includeTypes() const noexcept { return includeTypes_; }
  /// Sensitive values are written as "[sensitive]".
  [[nodiscard]] bool obfuscateSensitiveContent() const noexcept { return obfuscateSensitiveContent_; }
  /// Indented, multi-line JSON.
  [[nodiscard]] bool prettyPrint() const noexcept { return prettyPrint_; }
  /// Dictionary entries in ascending key order.
  [[nodiscard]] bool sortDictionaryKeys() const noexcept { return sortDictionaryKeys_; }
  /// The writer sorts the keys of every object.
  [[nodiscard]] bool sortPropertyKeys() const noexcept { return sortPropertyKeys_; }

  friend bool operator==(const VeltoDynamicDebugEncoderOptions&, const VeltoDynamicDebugEncoderOptions&) = default;

 private:
  DataContentsBehaviour dataBehaviour_;
  bool includeAddresses_;
  bool includeChildrenOfReferenceTypes_;
  bool includeClosures_;
  bool includeNulls_;
  bool includeTypes_;
  bool obfuscateSensitiveContent_;
  bool prettyPrint_;
  bool sortDictionaryKeys_;
  bool sortPropertyKeys_;
};
