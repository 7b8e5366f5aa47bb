// VeltoSignatureParameter: one relevant parameter of an endpoint signature, reduced to its plain
// textual description. Built implicitly, so an endpoint lists parameters of mixed types:
//
//   std::vector<VeltoSignatureParameter> relevantParameters() const override {
//     return {userId, "page", pageNumber, includeArchived, Sort::newestFirst};
//   }
//
// Descriptions: text stays itself; a char is its one-character text; bool is "true" or
// "false"; integers are their decimal text (so the integer 5 and the string "5" describe
// alike); floating point is the shortest text that reads back to the same value ("0.1", "1",
// "1e+20", "inf", "nan"); a UUID is its canonical upper-case text; an enumeration described with
// BOOST_DESCRIBE_ENUM is its case name; anything else with an `operator<<` is what it writes; any
// other enumeration is its underlying number. A type that fits none of these does not compile.
#pragma once

#include <concepts>
#include <cstdint>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <boost/describe/enum_to_string.hpp>
#include <boost/describe/enumerators.hpp>
#include <boost/uuid/uuid.hpp>

#include "velto/detail/UuidText.hpp"

namespace velto::detail {

template <class T>
concept SignatureText = std::is_convertible_v<const T&, std::string_view>;

template <class T>
concept StreamDescribable = requires(std::ostream& stream, const T& value) { stream << value; };

[[nodiscard]] std::string signatureIntegerText(std::int64_t value);
[[nodiscard]] std::string signatureIntegerText(std::uint64_t value);
[[nodiscard]] std::string signatureFloatingText(double value);

}  // namespace velto::detail

/// Anything a signature parameter can be made from (see the header comment).
template <class T>
concept VeltoSignatureDescribable =
    velto::detail::SignatureText<T> || std::is_arithmetic_v<T> || std::is_enum_v<T> ||
    std::is_same_v<T, boost::uuids::uuid> || velto::detail::StreamDescribable<T>;

/// A parameter's description, made once at construction. Regular value type.
/// Thread safety: immutable.
class VeltoSignatureParameter {
 public:
  /// Describes `value` (see the header comment). Implicit, so mixed lists can be written inline.
  template <class T>
    requires(VeltoSignatureDescribable<std::remove_cvref_t<T>> &&
             !std::is_same_v<std::remove_cvref_t<T>, VeltoSignatureParameter>)
  VeltoSignatureParameter(const T& value)  // NOLINT(google-explicit-constructor)
      : description_(describe(value)) {}

  /// The plain textual description; any bytes (text that is not valid UTF-8 is kept here and
  /// left out of signatures, which cannot encode it).
  [[nodiscard]] const std::string& description() const noexcept { return description_; }

  friend bool operator==(const VeltoSignatureParameter&, const VeltoSignatureParameter&) = default;

 private:
  template <class T>
  static std::string describe(const T& value) {
    using namespace velto::detail;
    if constexpr (SignatureText<T>) {
      return std::string(static_cast<std::string_view>(value));
    } else if constexpr (std::is_same_v<T, bool>) {
      return value ? "true" : "false";
    } else if constexpr (std::is_same_v<T, char>) {
      return std::string(1, value);
    } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
      return signatureIntegerText(static_cast<std::int64_t>(value));
    } else if constexpr (std::is_integral_v<T>) {
      return signatureIntegerText(static_cast<std::uint64_t>(value));
    } else if constexpr (std::is_floating_point_v<T>) {
      return signatureFloatingText(static_cast<double>(value));
    } else if constexpr (std::is_same_v<T, boost::uuids::uuid>) {
      return uuidText(value);
    } else if constexpr (std::is_enum_v<T> && boost::describe::has_describe_enumerators<T>::value) {
      if (const char* name = boost::describe::enum_to_string(value, nullptr)) return name;
      return signatureIntegerText(static_cast<std::int64_t>(static_cast<std::underlying_type_t<T>>(value)));
    } else if constexpr (StreamDescribable<T>) {
      std::ostringstream stream;
      stream << value;
      return std::move(stream).str();
    } else {
      using Underlying = std::underlying_type_t<T>;
      if constexpr (std::is_signed_v<Underlying>) return signatureIntegerText(static_cast<std::int64_t>(value));
      else return signatureIntegerText(static_cast<std::uint64_t>(value));
    }
  }

  std::string description_;
};
