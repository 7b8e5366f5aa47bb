// VeltoCodeSite: a position in source code (file, function, line), the unit every stack
// frame of a call trail is made of.
//
//   void load(std::shared_ptr<const VeltoVia> via, VeltoCodeSite site = VeltoCodeSite::current());
//   VeltoCodeSite literal("Model/Loader", "load(via:)", 42);   // texts known at compile time
//   VeltoCodeSite::interned(pathFromConfig, "reload()", 7);   // texts made at run time
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

class VeltoKeyedEncodingContainer;
class VeltoDynamicDebugEncoder;
template <class T>
class VeltoResult;

/// A source position: file path, function text and line. Regular value type.
///
/// Cost: the two texts are not owned. They point at storage that lives for the whole process
/// (string literals, the compiler's source-location texts, or the interning table), so copying
/// a code site never allocates; this is what lets a trail fork with exactly one allocation.
/// Thread safety: immutable; any number of threads may read and copy one.
class VeltoCodeSite {
 public:
  /// A site from compile-time texts: `fileName` stored unchanged (normally a full path),
  /// `functionName` the function's text (the library uses selector-style texts such as
  /// "protected(_:via:)"), `lineNumber` the line. Only literals bind here, so the texts can
  /// never dangle; use `interned` for texts made at run time.
  template <std::size_t FileSize, std::size_t FunctionSize>
  consteval VeltoCodeSite(const char (&fileName)[FileSize], const char (&functionName)[FunctionSize],
                          std::uint64_t lineNumber) noexcept
      : fileName_(fileName, FileSize - 1), functionName_(functionName, FunctionSize - 1), lineNumber_(lineNumber) {}

  /// The caller's own position. Used as a defaulted trailing parameter it names the call site
  /// of the function that declares it: file path as the compiler was given it, plain function
  /// name, line. A constructor reached through std::make_shared records a site inside the
  /// standard library; such types offer a `create` factory that records the caller's.
  [[nodiscard]] static constexpr VeltoCodeSite current(const char* fileName = __builtin_FILE(),
                                                       const char* functionName = __builtin_FUNCTION(),
                                                       unsigned lineNumber = __builtin_LINE()) noexcept {
    return VeltoCodeSite(std::string_view(fileName), std::string_view(functionName), lineNumber);
  }

  /// A site from texts known only at run time. Each distinct text is copied once into a
  /// process-wide table and kept until exit (sites are a small, finite set in any program).
  /// Thread-safe.
  [[nodiscard]] static VeltoCodeSite interned(std::string_view fileName, std::string_view functionName,
                                              std::uint64_t lineNumber);

  [[nodiscard]] constexpr std::string_view fileName() const noexcept { return fileName_; }
  [[nodiscard]] constexpr std::string_view functionName() const noexcept { return functionName_; }
  [[nodiscard]] constexpr std::uint64_t lineNumber() const noexcept { return lineNumber_; }

  /// The last path component of `filePath`: the text after the last "/", the whole text when
  /// there is none, and "" for a path ending in "/". Always present; optional only because
  /// debug output writes the file name "only when present". Used for debug output only;
  /// stored sites keep the full path.
  [[nodiscard]] static std::optional<std::string> sanitized(std::string_view filePath);

  /// Equal when file, function and line are all equal (texts compared by value).
  [[nodiscard]] friend constexpr bool operator==(const VeltoCodeSite& lhs, const VeltoCodeSite& rhs) noexcept {
    return lhs.lineNumber_ == rhs.lineNumber_ && lhs.fileName_ == rhs.fileName_ &&
           lhs.functionName_ == rhs.functionName_;
  }

  /// Debug output: "fileName" (the sanitized last path component), "functionName", "lineNumber".
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const;

 private:
  constexpr VeltoCodeSite(std::string_view fileName, std::string_view functionName, std::uint64_t lineNumber) noexcept
      : fileName_(fileName), functionName_(functionName), lineNumber_(lineNumber) {}

  std::string_view fileName_;
  std::string_view functionName_;
  std::uint64_t lineNumber_;
};

/// The library's own code site: a fixed file text below the library's tree (for example
/// "Via/DispatchQueue+VeltoVia"), a fixed function text (for example "async(via:execute:)")
/// and the real line of the expansion.
#define VELTO_SITE(fileText, functionText) (VeltoCodeSite((fileText), (functionText), __LINE__))
