#include <velto/networking/VeltoUploadingEndpointBase.hpp>

#include <gtest/gtest.h>

#include <cmath>

#include <velto/networking/VeltoHttpAuthorizationProviding.hpp>

#include "support/Bytes.hpp"

namespace {

struct NewComment : VeltoUploadEncodableObject<NewComment> {
  std::string text;
  std::vector<std::string> tags;
  double score = 0;
  VeltoResult<void> encodeFieldsForUpload(VeltoKeyedEncodingContainer& container) const {
    if (auto r = encodeValueForUpload(text, container, "text"); !r) return r;
    if (auto r = encodeValueForUpload(tags, container, "tags"); !r) return r;
    return encodeValueForUpload(score, container, "score");
  }
};

class PostComment final : public VeltoUploadingEndpointBase<NewComment, std::string>, public VeltoHttpAuthorizationProviding {
 public:
  PostComment(VeltoKnownMimeType type, NewComment comment)
      : VeltoUploadingEndpointBase(VeltoSupportedHttpVerb::post, type, std::move(comment), nullptr, nullptr,
                                   [](auto&, const auto&, const auto&) { return VeltoResultVoidSuccess; }) {}
  VeltoResult<boost::urls::url> makeUrl() const override { return boost::urls::url("http://127.0.0.1/comments"); }
  std::vector<VeltoSignatureParameter> relevantParameters() const override { return {requestParameters().text}; }
  std::optional<VeltoHttpAuthorization> httpAuthorization() const override { return VeltoHttpAuthorization::bearer("t"); }
};

std::string bodyText(const VeltoRequestSupporting& endpoint) {
  const auto* payload = dynamic_cast<const VeltoEncodedPayloadProviding*>(&endpoint);
  EXPECT_NE(payload, nullptr);
  if (!payload) return {};
  const auto body = payload->makeEncodedPayload();
  EXPECT_TRUE(body.hasValue());
  if (!body || !body.value()) return {};
  return velto::test::textOf(*body.value());
}

// The adapter finds the body and the authorization with dynamic_cast, as it would at request time.
TEST(VeltoUploadingEndpointBase, sendsItsParametersAsTheChosenBody) {
  NewComment comment;
  comment.text = "so good";
  comment.tags = {"a&b"};
  comment.score = 4.5;
  const std::shared_ptr<VeltoRequestSupporting> json = std::make_shared<PostComment>(VeltoKnownMimeType::json, comment);
  const std::shared_ptr<VeltoRequestSupporting> form = std::make_shared<PostComment>(VeltoKnownMimeType::form, comment);
  EXPECT_EQ(bodyText(*json), R"({"text":"so good","tags":["a&b"],"score":4.5})");
  EXPECT_EQ(bodyText(*form), "text=so+good&tags=a%26b&score=4.5");
  EXPECT_EQ(dynamic_cast<const VeltoEncodedPayloadProviding&>(*form).mimeType(), VeltoKnownMimeType::form);
  ASSERT_NE(dynamic_cast<const VeltoHttpAuthorizationProviding*>(json.get()), nullptr);
  EXPECT_EQ(json->makeSignature().value().stringRepresentation(), "http://127.0.0.1/comments?so%20good");
}

TEST(VeltoUploadingEndpointBase, passesEncodingFailuresUpUnchanged) {
  NewComment comment;
  comment.score = std::nan("");
  const PostComment endpoint(VeltoKnownMimeType::json, comment);
  const auto body = endpoint.makeEncodedPayload();
  ASSERT_TRUE(body.isFailure());
  EXPECT_EQ(body.error().message(), "Unable to encode a non-finite floating-point value directly in JSON");
  VeltoEncodingDocument direct;
  auto encoder = direct.encoder();
  const auto unwrapped = encodeValueForUpload(comment, encoder);
  EXPECT_EQ(body.error().stackFrames().size(), unwrapped.error().stackFrames().size()) << "no frame added on the way out";
}

}  // namespace
