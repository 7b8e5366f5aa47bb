// VeltoDynamicDebugEncoderOptions: what the debug encoder writes and how.
//
//   VeltoDynamicDebugEncoderOptions compact({.includeAddresses = false, .prettyPrint = false});
//   auto typed = VeltoDynamicDebugEncoderOptions::forLogging().withIncludeTypes(true);
//   VeltoDynamicDebugEncoder::encodeToString(value, compact);
#pragma once

#include <optional>
#include <string_view>
#include <variant>

#include <boost/describe/class.hpp>

#include "velto/values/VeltoFileSize.hpp"
#include "velto/values/VeltoOverride.hpp"

/// Every option of one debug encoding: by name through `Fields` (designated initializers, the
/// logging preset for what is not named), by the all-fields constructor (ten, in order, no
/// defaults), or as a changed copy (`with...`, `replacing`). `forLogging()` is the preset the
/// fallback logger uses. Regular value type.
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

  /// Every field by name, for designated initializers; the defaults are the `forLogging()`
  /// preset, so a designated list says only what differs from it:
  ///
  ///   VeltoDynamicDebugEncoderOptions options({.includeAddresses = false, .prettyPrint = false});
  struct Fields {
    DataContentsBehaviour dataBehaviour = DataContentsBehaviour::includeContents(VeltoFileSize::fromKibiBytes(1));
    bool includeAddresses = true;
    bool includeChildrenOfReferenceTypes = true;
    bool includeClosures = true;
    bool includeNulls = true;
    bool includeTypes = false;
    bool obfuscateSensitiveContent = true;
    bool prettyPrint = true;
    bool sortDictionaryKeys = true;
    bool sortPropertyKeys = false;
    friend bool operator==(const Fields&, const Fields&) = default;
  };

  /// Every field, in order. Ten positional arguments are easy to mix up: prefer the Fields form
  /// or the `with...` copies in new code.
  VeltoDynamicDebugEncoderOptions(DataContentsBehaviour dataBehaviour, bool includeAddresses,
                                  bool includeChildrenOfReferenceTypes, bool includeClosures, bool includeNulls,
                                  bool includeTypes, bool obfuscateSensitiveContent, bool prettyPrint,
                                  bool sortDictionaryKeys, bool sortPropertyKeys) noexcept
      : fields_{dataBehaviour,     includeAddresses,          includeChildrenOfReferenceTypes,
                includeClosures,   includeNulls,              includeTypes,
                obfuscateSensitiveContent, prettyPrint,       sortDictionaryKeys,
                sortPropertyKeys} {}

  /// The options named in `fields`.
  explicit VeltoDynamicDebugEncoderOptions(const Fields& fields) noexcept : fields_(fields) {}

  /// Everything rendered (contents up to 1 KiB, addresses, object children, closures, nulls),
  /// sensitive content hidden, pretty-printed, dictionary entries sorted, properties in their
  /// declaration order (so an error reads message, time, uuid, then its frames), no "__type".
  [[nodiscard]] static VeltoDynamicDebugEncoderOptions forLogging() noexcept { return VeltoDynamicDebugEncoderOptions(Fields{}); }

  /// A copy with each field replaced where its argument says so: `override` / a present value
  /// replaces, `noOverride` / absence keeps.
  [[nodiscard]] VeltoDynamicDebugEncoderOptions replacing(
      VeltoOverride<DataContentsBehaviour> dataBehaviour, std::optional<bool> includeAddresses = std::nullopt,
      std::optional<bool> includeChildrenOfReferenceTypes = std::nullopt, std::optional<bool> includeClosures = std::nullopt,
      std::optional<bool> includeNulls = std::nullopt, std::optional<bool> includeTypes = std::nullopt,
      std::optional<bool> obfuscateSensitiveContent = std::nullopt, std::optional<bool> prettyPrint = std::nullopt,
      std::optional<bool> sortDictionaryKeys = std::nullopt, std::optional<bool> sortPropertyKeys = std::nullopt) const {
    const Fields& f = fields_;
    return VeltoDynamicDebugEncoderOptions(Fields{
        dataBehaviour.resolve(f.dataBehaviour), includeAddresses.value_or(f.includeAddresses),
        includeChildrenOfReferenceTypes.value_or(f.includeChildrenOfReferenceTypes),
        includeClosures.value_or(f.includeClosures), includeNulls.value_or(f.includeNulls),
        includeTypes.value_or(f.includeTypes), obfuscateSensitiveContent.value_or(f.obfuscateSensitiveContent),
        prettyPrint.value_or(f.prettyPrint), sortDictionaryKeys.value_or(f.sortDictionaryKeys),
        sortPropertyKeys.value_or(f.sortPropertyKeys)});
  }

  /// Copies with one field changed: `forLogging().withPrettyPrint(false).withIncludeTypes(true)`.
  [[nodiscard]] VeltoDynamicDebugEncoderOptions withDataBehaviour(DataContentsBehaviour value) const noexcept {
    return changed(&Fields::dataBehaviour, value);
  }
  [[nodiscard]] VeltoDynamicDebugEncoderOptions withIncludeAddresses(bool value) const noexcept {
    return changed(&Fields::includeAddresses, value);
  }
  [[nodiscard]] VeltoDynamicDebugEncoderOptions withIncludeChildrenOfReferenceTypes(bool value) const noexcept {
    return changed(&Fields::includeChildrenOfReferenceTypes, value);
  }
  [[nodiscard]] VeltoDynamicDebugEncoderOptions withIncludeClosures(bool value) const noexcept {
    return changed(&Fields::includeClosures, value);
  }
  [[nodiscard]] VeltoDynamicDebugEncoderOptions withIncludeNulls(bool value) const noexcept {
    return changed(&Fields::includeNulls, value);
  }
  [[nodiscard]] VeltoDynamicDebugEncoderOptions withIncludeTypes(bool value) const noexcept {
    return changed(&Fields::includeTypes, value);
  }
  [[nodiscard]] VeltoDynamicDebugEncoderOptions withObfuscateSensitiveContent(bool value) const noexcept {
    return changed(&Fields::obfuscateSensitiveContent, value);
  }
  [[nodiscard]] VeltoDynamicDebugEncoderOptions withPrettyPrint(bool value) const noexcept {
    return changed(&Fields::prettyPrint, value);
  }
  [[nodiscard]] VeltoDynamicDebugEncoderOptions withSortDictionaryKeys(bool value) const noexcept {
    return changed(&Fields::sortDictionaryKeys, value);
  }
  [[nodiscard]] VeltoDynamicDebugEncoderOptions withSortPropertyKeys(bool value) const noexcept {
    return changed(&Fields::sortPropertyKeys, value);
  }

  /// Every field by name (change some and make new options from them).
  [[nodiscard]] const Fields& fields() const noexcept { return fields_; }

  [[nodiscard]] const DataContentsBehaviour& dataBehaviour() const noexcept { return fields_.dataBehaviour; }
  /// Objects carry "__address" / "__previouslyEncodedAddress".
  [[nodiscard]] bool includeAddresses() const noexcept { return fields_.includeAddresses; }
  /// Objects' stored properties are written at all.
  [[nodiscard]] bool includeChildrenOfReferenceTypes() const noexcept { return fields_.includeChildrenOfReferenceTypes; }
  /// Closures are written as "[closure]" instead of being left out.
  [[nodiscard]] bool includeClosures() const noexcept { return fields_.includeClosures; }
  /// Absent optionals are written as null instead of being left out.
  [[nodiscard]] bool includeNulls() const noexcept { return fields_.includeNulls; }
  /// Structures and objects carry "__type".
  [[nodiscard]] bool includeTypes() const noexcept { return fields_.includeTypes; }
  /// Sensitive values are written as "[sensitive]".
  [[nodiscard]] bool obfuscateSensitiveContent() const noexcept { return fields_.obfuscateSensitiveContent; }
  /// Indented, multi-line JSON.
  [[nodiscard]] bool prettyPrint() const noexcept { return fields_.prettyPrint; }
  /// Dictionary entries in ascending key order.
  [[nodiscard]] bool sortDictionaryKeys() const noexcept { return fields_.sortDictionaryKeys; }
  /// The writer sorts the keys of every object.
  [[nodiscard]] bool sortPropertyKeys() const noexcept { return fields_.sortPropertyKeys; }

  friend bool operator==(const VeltoDynamicDebugEncoderOptions&, const VeltoDynamicDebugEncoderOptions&) = default;

 private:
  template <class Field, class Value>
  [[nodiscard]] VeltoDynamicDebugEncoderOptions changed(Field Fields::*field, Value value) const noexcept {
    Fields copy = fields_;
    copy.*field = value;
    return VeltoDynamicDebugEncoderOptions(copy);
  }

  Fields fields_;
};
