// VeltoRegex: a compiled regular expression with whole-string operations: testing, listing
// matches, the capture groups of the first match and template replacement.
//
//   auto digits = VeltoRegex::make(R"(\d+)");
//   if (!digits) return ...;                                     // "Invalid pattern"
//   bool any = digits.value()->test("a1b22");                    // true
//   auto all = digits.value()->simpleMatches("a1b22c333");       // {"1", "22", "333"}
//   auto swapped = VeltoRegex::make(R"((\w+)@(\w+))").value()->replacingMatches("me@home", "$2@$1");
//
// The engine is ICU's: its pattern syntax, its "$n" template syntax, and its UTF-16 indices.
// Texts are UTF-8 std::strings in and out; they are searched as UTF-16 and every substring is cut
// by the ranges ICU reports. Malformed UTF-8 is read with U+FFFD in place of each bad sequence.
// ICU itself stays out of this header.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "velto/core/VeltoResult.hpp"

namespace velto::detail {
struct RegexEngine;
}

/// An immutable compiled pattern, shared by reference (make returns a shared_ptr).
///
/// Cost: each operation converts the text to UTF-16 and leases an ICU matcher from the regex's
/// own pool (two uncontended mutex operations; a new matcher only when every pooled one is in
/// use), then matches. The pool holds one matcher per thread that ever matched concurrently.
/// Thread safety: logically immutable; any number of threads may use one regex at once.
class VeltoRegex {
  struct Token {};

 public:
  /// Compiles `pattern` with no options. Fails with "Invalid pattern" (arguments "pattern",
  /// "errorName", the ICU error, and "offset", the UTF-16 offset ICU points at, or -1).
  [[nodiscard]] static VeltoResult<std::shared_ptr<const VeltoRegex>> make(std::string pattern);

  VeltoRegex(Token, std::string pattern, std::unique_ptr<const velto::detail::RegexEngine> engine) noexcept;
  ~VeltoRegex();
  VeltoRegex(const VeltoRegex&) = delete;
  VeltoRegex& operator=(const VeltoRegex&) = delete;

  [[nodiscard]] const std::string& pattern() const noexcept { return pattern_; }

  /// Whether the expression matches anywhere in `string`.
  [[nodiscard]] bool test(std::string_view string) const;
  /// The matched substrings of all matches, in order; empty when there is none.
  [[nodiscard]] std::vector<std::string> simpleMatches(std::string_view string) const;
  /// The substrings of groups 1 to the last of the first match; empty when there is no match or
  /// the pattern has no groups. A group that took no part in the match yields "".
  [[nodiscard]] std::vector<std::string> simpleCaptureGroups(std::string_view string) const;
  /// `string` with every match replaced by `replacementTemplate`. The template's rule:
  ///   "$" and a digit     a group reference: the first digit, then as many more digits as
  ///                       still name a group ("$12" with three groups is group 1, then "2")
  ///   a backslash and     that character, literally (backslash-dollar-1 is "$1")
  ///     any character
  ///   anything else       itself: a "$" not followed by a digit ("US$ $0", "${name}", a lone
  ///                       "$") and a trailing backslash are literal text
  /// Fails with "Invalid template" (arguments "string", "template", "errorName"
  /// "U_INDEX_OUTOFBOUNDS_ERROR") only when the template refers to a group the pattern does not
  /// have, and only once there is a match to replace: without one `string` comes back unchanged.
  [[nodiscard]] VeltoResult<std::string> replacingMatches(std::string_view string, std::string_view replacementTemplate) const;

 private:
  std::string pattern_;
  std::unique_ptr<const velto::detail::RegexEngine> engine_;
};
