// VeltoUploadEncodingShim: any upload-encodable value behind one type, and the request bodies
// made from it: JSON, or an application/x-www-form-urlencoded form.
//
//   VeltoUploadEncodingShim shim(NewComment{"Nice", {"a", "b"}});
//   auto json = shim.makeJsonData();     // {"text":"Nice","tags":["a","b"]}
//   auto form = shim.makeFormData();     // text=Nice&tags=a&tags=b
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

#include "velto/core/VeltoData.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/encoding/VeltoEncoder.hpp"
#include "velto/encoding/VeltoUploadEncodable.hpp"

/// Holds `contents`, a shared reference to an upload-encodable value, and encodes it as the
/// encoder's whole value, adding nothing of its own.
///
/// Bodies. JSON: the value as compact JSON text, objects in the order their keys were written.
/// Form: the value must be one object whose entries are scalars or arrays of scalars; each
/// scalar entry is written `name=value`, each array repeats its name once per element (an empty
/// array writes nothing), in entry order, joined by "&". Names and values are encoded as
/// application/x-www-form-urlencoded says: ASCII letters, digits and `* - . _` pass, a space
/// becomes "+", every other byte "%" and two upper-case hex digits. Booleans are "true" and
/// "false", numbers their JSON text, null an empty value.
///
/// Failures: the encoding's own failures (a non-finite double) are passed up unchanged. Both
/// bodies fail with "Upload text is not valid UTF-8" when a written string or key is not. The
/// form fails with "Form body needs a keyed container at the top level" (argument "json": what
/// was written) and "Form body cannot hold nested containers" (argument "key").
///
/// Cost: the value is first written into a document tree, then serialised.
/// Thread safety: immutable; the contents are shared, never copied, and must not change.
class VeltoUploadEncodingShim {
 public:
  template <VeltoUploadEncodable T>
  explicit VeltoUploadEncodingShim(std::shared_ptr<const T> contents)
      : contents_(std::move(contents)), encode_(&encodeContents<T>) {}

  template <class T>
    requires VeltoUploadEncodable<std::remove_cvref_t<T>>
  explicit VeltoUploadEncodingShim(T&& contents)
      : VeltoUploadEncodingShim(std::make_shared<const std::remove_cvref_t<T>>(std::forward<T>(contents))) {}

  /// The contents' top-level upload encoding, its failure passed up unchanged.
  [[nodiscard]] VeltoResult<void> encode(VeltoEncoder& encoder) const { return encode_(contents_.get(), encoder); }

  [[nodiscard]] const std::shared_ptr<const void>& contents() const noexcept { return contents_; }

  /// The JSON body (see the class comment).
  [[nodiscard]] VeltoResult<VeltoData> makeJsonData() const;
  /// The form body (see the class comment).
  [[nodiscard]] VeltoResult<VeltoData> makeFormData() const;

 private:
  template <class T>
  static VeltoResult<void> encodeContents(const void* contents, VeltoEncoder& encoder) {
    return encodeValueForUpload(*static_cast<const T*>(contents), encoder);
  }

  std::shared_ptr<const void> contents_;
  VeltoResult<void> (*encode_)(const void*, VeltoEncoder&);
};
