// VeltoUploadingEndpointBase<Parameters, Payload>: an endpoint that sends its request parameters
// as the request body, JSON or a URL-encoded form, through the upload encoding.
//
//   class PostCommentEndpoint final : public VeltoUploadingEndpointBase<NewComment, Comment> {
//    public:
//     PostCommentEndpoint(NewComment comment, OnOutcome onOutcome)
//         : VeltoUploadingEndpointBase(VeltoSupportedHttpVerb::post, VeltoKnownMimeType::json, std::move(comment),
//                                      nullptr, nullptr, std::move(onOutcome)) {}
//     ...makeUrl, relevantParameters, parse as for any endpoint...
//   };
#pragma once

#include <optional>
#include <utility>

#include "velto/core/VeltoData.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/encoding/VeltoUploadEncodingShim.hpp"
#include "velto/networking/VeltoEncodedPayloadProviding.hpp"
#include "velto/networking/VeltoEndpointBase.hpp"
#include "velto/networking/VeltoKnownMimeType.hpp"

/// A VeltoEndpointBase that implements VeltoEncodedPayloadProviding: its body is its request
/// parameters, encoded at each request by VeltoUploadEncodingShim (`makeJsonData` for json,
/// `makeFormData` for form). The encoding's failures are passed up unchanged and stop the
/// request before it starts. Ownership, cost and thread safety as VeltoEndpointBase; encoding
/// runs on the thread that begins the request.
template <class Parameters, class Payload>
  requires VeltoUploadEncodable<Parameters>
class VeltoUploadingEndpointBase : public VeltoEndpointBase<Parameters, Payload>, public VeltoEncodedPayloadProviding {
  using Base = VeltoEndpointBase<Parameters, Payload>;

 public:
  /// As VeltoEndpointBase's constructor, with the body's content type.
  /// REQUIRES: `onOutcome` is set (fatal stop otherwise).
  VeltoUploadingEndpointBase(VeltoSupportedHttpVerb httpVerb, VeltoKnownMimeType mimeType, Parameters requestParameters,
                             typename Base::OnDownloaded onDownloaded, typename Base::OnInitiated onInitiated,
                             typename Base::OnOutcome onOutcome)
      : Base(httpVerb, std::move(requestParameters), std::move(onDownloaded), std::move(onInitiated),
             std::move(onOutcome)),
        mimeType_(mimeType) {}

  [[nodiscard]] VeltoKnownMimeType mimeType() const override { return mimeType_; }

  /// The encoded parameters; always bytes on success (an empty form is zero bytes).
  [[nodiscard]] VeltoResult<std::optional<VeltoData>> makeEncodedPayload() const override {
    const VeltoUploadEncodingShim shim(this->sharedRequestParameters());
    auto body = mimeType_ == VeltoKnownMimeType::json ? shim.makeJsonData() : shim.makeFormData();
    if (body.isFailure()) return VeltoResult<std::optional<VeltoData>>::failure(body.error());
    return std::optional<VeltoData>(std::move(body).value());
  }

 private:
  VeltoKnownMimeType mimeType_;
};
