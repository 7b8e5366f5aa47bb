#include <velto/networking/VeltoEndpointBase.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <velto/core/VeltoImpetus.hpp>
#include <velto/encoding/VeltoDynamicDebugEncoder.hpp>
#include <velto/encoding/VeltoEmptyRequestParameters.hpp>

#include "support/Bytes.hpp"
#include "support/FrameNames.hpp"
#include "support/HttpStatusCodes.hpp"
#include "support/RecordedArgs.hpp"

namespace {

using Via = std::shared_ptr<const VeltoVia>;
using velto::test::argKeys;
using velto::test::bytesOf;
using velto::test::functionNames;
using velto::test::textOf;

// Parses a body as its text; a body starting with "X" fails to parse.
class TextEndpoint final : public VeltoEndpointBase<VeltoEmptyRequestParameters, std::string> {
 public:
  using VeltoEndpointBase::VeltoEndpointBase;
  VeltoResult<boost::urls::url> makeUrl() const override { return boost::urls::url("http://127.0.0.1/text"); }
  std::vector<VeltoSignatureParameter> relevantParameters() const override { return {}; }
  VeltoResult<std::string> parse(const VeltoData& data) const override {
    ++parseCalls;
    std::string text = textOf(data);
    if (!text.empty() && text.front() == 'X') return VeltoResult<std::string>::fromMessage("bad body");
    return text;
  }
  mutable int parseCalls = 0;
};

// An endpoint that leaves parse to the base.
class UnparsedEndpoint final : public VeltoEndpointBase<VeltoEmptyRequestParameters, int> {
 public:
  using VeltoEndpointBase::VeltoEndpointBase;
  VeltoResult<boost::urls::url> makeUrl() const override { return boost::urls::url("http://127.0.0.1/"); }
  std::vector<VeltoSignatureParameter> relevantParameters() const override { return {}; }
};

using Outcome = VeltoEndpointOutcome<std::string>;

struct Recorder {
  std::vector<Outcome> outcomes;
  std::vector<Via> vias;
  TextEndpoint::OnOutcome callback() {
    return [this](auto&, const Outcome& outcome, const Via& via) {
      outcomes.push_back(outcome);
      vias.push_back(via);
      return VeltoResultVoidSuccess;
    };
  }
};

std::shared_ptr<TextEndpoint> makeEndpoint(Recorder& recorder) {
  return std::make_shared<TextEndpoint>(VeltoSupportedHttpVerb::get, VeltoEmptyRequestParameters(), nullptr, nullptr,
                                        recorder.callback());
}

// ---- the classification model --------------------------------------------------------------

struct Completion {
  std::vector<VeltoData> stores;                     // bodies stored before completion, in order
  std::optional<std::int64_t> statusCode;
  std::shared_ptr<const VeltoPlatformError> error;  // outermost
  std::int64_t innermostCode = 0;
};

// A random error chain: depth 0 to 7 below the outermost, random domains and codes; sometimes the
// outermost or the innermost is a VeltoError.
std::shared_ptr<const VeltoPlatformError> randomChain(std::mt19937_64& random, std::int64_t& innermostCode) {
  static const std::vector<std::int64_t> codes{-1001, -1003, -1004, -1005, -1006, -1007, -1008, -1009, -1018, -1020,
                                               -999,  -1000, -1002, -1011, -1019, -1021, 0,     1,     -1010, 42};
  static const std::vector<std::string> domains{std::string(VeltoPlatformError::urlErrorDomain), "NSPOSIXErrorDomain",
                                                "kCFErrorDomainCFNetwork", "com.example"};
  const int depth = static_cast<int>(random() % 8);
  std::shared_ptr<const VeltoPlatformError> error;
  if (random() % 6 == 0) {
    error = std::make_shared<VeltoError>("inner failure");
    innermostCode = 1;
  } else {
    innermostCode = codes[random() % codes.size()];
    error = VeltoPlatformError::make(domains[random() % domains.size()], innermostCode, "innermost");
  }
  for (int i = 0; i < depth; ++i) {
    error = VeltoPlatformError::make(domains[random() % domains.size()], codes[random() % codes.size()], "wrapper", {},
                                     error);
  }
  if (depth == 0 && random() % 4 == 0) {
    error = std::make_shared<VeltoError>("outer failure");
    innermostCode = 1;
  }
  return error;
}

Completion randomCompletion(std::mt19937_64& random) {
  Completion c;
  const int storeCount = random() % 10 == 0 ? 0 : 1 + static_cast<int>(random() % 2);
  for (int i = 0; i < storeCount; ++i) {
    std::string body = random() % 5 == 0 ? "X-unparseable" : "body-" + std::to_string(random() % 1000);
    if (random() % 8 == 0) body.clear();
    c.stores.push_back(bytesOf(body));
  }
  switch (random() % 6) {
    case 0: break;  // absent
    case 1: c.statusCode = static_cast<std::int64_t>(random() % 700) - 50; break;
    case 2: c.statusCode = static_cast<std::int64_t>(random()); break;
    default: {
      auto it = velto::test::httpStatusCodeNames().begin();
      std::advance(it, random() % velto::test::httpStatusCodeNames().size());
      c.statusCode = it->first;
    }
  }
  if (random() % 2 == 0) c.error = randomChain(random, c.innermostCode);
  return c;
}

// Checks `outcome` against the rules, written from scratch.
void expectClassified(const Completion& c, const Outcome& outcome, int parseCallsBefore, const TextEndpoint& endpoint) {
  static const std::set<std::int64_t> connectivity{-1001, -1003, -1004, -1005, -1006, -1007, -1008, -1009, -1018, -1020};
  static const std::set<std::int64_t> successes{200, 201, 202, 203, 204, 205, 206, 207, 208, 226};
  if (c.error) {
    if (connectivity.count(c.innermostCode)) {
      EXPECT_TRUE(outcome.is<Outcome::ConnectivityError>()) << outcome.caseName();
    } else if (c.error->domain() == "NSURLErrorDomain" && c.error->code() == -999) {
      EXPECT_TRUE(outcome.is<Outcome::Cancelled>()) << outcome.caseName();
    } else {
      const auto* failure = outcome.getIf<Outcome::NonConnectivityNetworkError>();
      ASSERT_NE(failure, nullptr) << outcome.caseName();
      if (const auto* veltoError = dynamic_cast<const VeltoError*>(c.error.get())) {
        EXPECT_EQ(failure->error.uuid(), veltoError->uuid()) << "a VeltoError is passed on as it is";
        EXPECT_EQ(failure->error.stackFrames().size(), veltoError->stackFrames().size());
      } else {
        EXPECT_EQ(failure->error.message(), "Network error");
        EXPECT_EQ(failure->error.frameworkError(), c.error);
      }
    }
    EXPECT_EQ(endpoint.parseCalls, parseCallsBefore) << "a transport error never parses";
    return;
  }
  if (c.stores.empty()) {
    const auto* failure = outcome.getIf<Outcome::ApplicationError>();
    ASSERT_NE(failure, nullptr) << outcome.caseName();
    EXPECT_EQ(failure->error.message(), "No network error but no downloaded data");
    EXPECT_EQ(argKeys(failure->error.stackFrames().front()), (std::vector<std::string>{"self", "statusCode"}));
    return;
  }
  const VeltoData& body = c.stores.back();
  if (!c.statusCode || !velto::test::httpStatusCodeNames().contains(*c.statusCode)) {
    const auto* failure = outcome.getIf<Outcome::ApplicationError>();
    ASSERT_NE(failure, nullptr) << outcome.caseName() << " for " << c.statusCode.value_or(-12345);
    EXPECT_EQ(failure->error.message(), "Could not parse status code");
    return;
  }
  const std::int64_t code = *c.statusCode;
  if (successes.count(code)) {
    EXPECT_EQ(endpoint.parseCalls, parseCallsBefore + 1);
    const std::string text = textOf(body);
    if (!text.empty() && text.front() == 'X') {
      const auto* failure = outcome.getIf<Outcome::ApplicationError>();
      ASSERT_NE(failure, nullptr) << outcome.caseName();
      EXPECT_EQ(failure->error.message(), "bad body");
      EXPECT_EQ(functionNames(failure->error.stackFrames()).back(), "completed(statusCode:error:via:)")
          << "the parse error is passed up with the completion's frame";
    } else {
      const auto* success = outcome.getIf<Outcome::Success>();
      ASSERT_NE(success, nullptr) << outcome.caseName();
      EXPECT_EQ(static_cast<std::int64_t>(success->statusCode), code);
      EXPECT_EQ(success->payload, text);
    }
    return;
  }
  EXPECT_EQ(endpoint.parseCalls, parseCallsBefore);
  if (code == 400) {
    const auto* failure = outcome.getIf<Outcome::UserError>();
    ASSERT_NE(failure, nullptr) << outcome.caseName();
    EXPECT_EQ(static_cast<std::int64_t>(failure->statusCode), 400);
    EXPECT_EQ(failure->data, body);
  } else if (code == 403) {
    EXPECT_TRUE(outcome.is<Outcome::Unauthorized>()) << outcome.caseName();
  } else {
    const auto* failure = outcome.getIf<Outcome::NonUserHttpError>();
    ASSERT_NE(failure, nullptr) << outcome.caseName() << " for " << code;
    EXPECT_EQ(static_cast<std::int64_t>(failure->statusCode), code);
    EXPECT_EQ(failure->data, body);
  }
}

// Thousands of random completions (status codes, bodies stored zero to two times, the last one
// counting, empty ones parsed too; error chains of random depth and domains) against the rules.
TEST(VeltoEndpointBase, classifiesRandomCompletionsAsTheRulesSay) {
  std::mt19937_64 random(20240611);
  const auto impetus = VeltoImpetus::create("classification");
  for (int i = 0; i < 5000; ++i) {
    SCOPED_TRACE("completion " + std::to_string(i));
    Recorder recorder;
    auto endpoint = makeEndpoint(recorder);
    const Completion c = randomCompletion(random);
    for (const VeltoData& body : c.stores) ASSERT_TRUE(endpoint->store(body, impetus).hasValue());
    const int parseCallsBefore = endpoint->parseCalls;
    ASSERT_TRUE(endpoint->completed(c.statusCode, c.error, impetus).hasValue());
    ASSERT_EQ(recorder.outcomes.size(), 1u);
    expectClassified(c, recorder.outcomes[0], parseCallsBefore, *endpoint);
    if (HasFailure()) return;
  }
}

// A hand-written error type whose chain loops must not hang the classification.
TEST(VeltoEndpointBase, aLoopingErrorChainEnds) {
  struct Looping final : VeltoPlatformError {
    std::int64_t code_;
    std::weak_ptr<const VeltoPlatformError> next;
    explicit Looping(std::int64_t code) : code_(code) {}
    std::string domain() const override { return "Looping"; }
    std::int64_t code() const override { return code_; }
    std::string localizedDescription() const override { return "loops"; }
    const VeltoArgs& userInfo() const override {
      static const VeltoArgs none;
      return none;
    }
    std::shared_ptr<const VeltoPlatformError> underlyingError() const override { return next.lock(); }
  };
  const auto impetus = VeltoImpetus::create("loop");
  for (int length = 1; length <= 5; ++length) {
    std::vector<std::shared_ptr<Looping>> ring;
    for (int i = 0; i < length; ++i) ring.push_back(std::make_shared<Looping>(i));
    for (int i = 0; i < length; ++i) ring[i]->next = ring[(i + 1) % length];
    Recorder recorder;
    auto endpoint = makeEndpoint(recorder);
    ASSERT_TRUE(endpoint->completed(std::nullopt, ring[0], impetus).hasValue());
    EXPECT_EQ(recorder.outcomes.at(0).caseName(), "nonConnectivityNetworkError") << length;
  }
}

TEST(VeltoEndpointBase, everyOperationForksTheTrailWithItsOwnSite) {
  const auto impetus = VeltoImpetus::create("trails");
  std::vector<std::string_view> initiatedVia;
  std::vector<std::string_view> downloadedVia;
  Recorder recorder;
  auto endpoint = std::make_shared<TextEndpoint>(
      VeltoSupportedHttpVerb::post, VeltoEmptyRequestParameters(),
      [&](auto& self, const VeltoData& data, const Via& via) {
        EXPECT_EQ(self.downloadedData(), data) << "stored before the callback runs";
        downloadedVia = functionNames(via->stackFrames());
        return VeltoResultVoidSuccess;
      },
      [&](auto&, const Via& via) {
        initiatedVia = functionNames(via->stackFrames());
        return VeltoResultVoidSuccess;
      },
      recorder.callback());
  ASSERT_TRUE(endpoint->initiated(impetus).hasValue());
  ASSERT_TRUE(endpoint->store(bytesOf("b"), impetus).hasValue());
  ASSERT_TRUE(endpoint->completed(200, nullptr, impetus).hasValue());
  ASSERT_TRUE(endpoint->failedPrematurely(VeltoError("refused"), impetus).hasValue());
  ASSERT_EQ(initiatedVia.size(), 2u);
  EXPECT_EQ(initiatedVia[0], "initiated(via:)");
  EXPECT_EQ(downloadedVia[0], "store(downloadedData:via:)");
  EXPECT_EQ(recorder.vias.at(0)->stackFrames().front().codeSite().functionName(), "completed(statusCode:error:via:)");
  EXPECT_EQ(recorder.vias.at(1)->stackFrames().front().codeSite().functionName(), "failedPrematurely(error:via:)");
  const auto frame = recorder.vias.at(0)->stackFrames().front();
  EXPECT_EQ(frame.codeSite().fileName(), "Networking/VeltoEndpointBase");
  ASSERT_TRUE(frame.invokerSite());
  EXPECT_NE(frame.invokerSite()->fileName().find("VeltoEndpointBaseTest.cpp"), std::string_view::npos)
      << "the caller's site is recorded";
  const auto* premature = recorder.outcomes.at(1).getIf<Outcome::ApplicationError>();
  ASSERT_NE(premature, nullptr);
  EXPECT_EQ(premature->error.message(), "refused");
}

TEST(VeltoEndpointBase, callbackFailuresArePassedUpWithTheirArguments) {
  const auto impetus = VeltoImpetus::create("failing callbacks");
  auto fail = [](std::string message) { return VeltoResult<void>::fromMessage(std::move(message)); };
  auto endpoint = std::make_shared<TextEndpoint>(
      VeltoSupportedHttpVerb::get, VeltoEmptyRequestParameters(),
      [&](auto&, const VeltoData&, const Via&) { return fail("downloaded"); },
      [&](auto&, const Via&) { return fail("initiated"); },
      [&](auto&, const Outcome&, const Via&) { return fail("outcome"); });

  auto initiated = endpoint->initiated(impetus);
  ASSERT_TRUE(initiated.isFailure());
  EXPECT_EQ(initiated.error().message(), "initiated");
  EXPECT_EQ(functionNames(initiated.error().stackFrames()).back(), "initiated(via:)");

  auto stored = endpoint->store(bytesOf("kept"), impetus);
  ASSERT_TRUE(stored.isFailure());
  EXPECT_EQ(argKeys(stored.error().stackFrames().back()), (std::vector<std::string>{"downloadedData"}));
  EXPECT_EQ(endpoint->downloadedData(), bytesOf("kept")) << "the body stays stored";

  auto completed = endpoint->completed(200, nullptr, impetus);
  ASSERT_TRUE(completed.isFailure());
  EXPECT_EQ(completed.error().message(), "outcome");
  EXPECT_EQ(argKeys(completed.error().stackFrames().back()), (std::vector<std::string>{"self", "statusCode", "newOutcome"}));
  const auto* recorded = velto::test::argOf<Outcome>(completed.error().stackFrames().back(), "newOutcome");
  ASSERT_NE(recorded, nullptr);
  EXPECT_EQ(recorded->getIf<Outcome::Success>()->payload, "kept");
  const auto* self = velto::test::argOf<std::weak_ptr<const VeltoEndpointBase<VeltoEmptyRequestParameters, std::string>>>(
      completed.error().stackFrames().back(), "self");
  ASSERT_NE(self, nullptr);
  EXPECT_EQ(self->lock().get(), endpoint.get()) << "held weakly, so an error cannot keep its endpoint alive";

  auto premature = endpoint->failedPrematurely(VeltoError("early"), impetus);
  ASSERT_TRUE(premature.isFailure());
  EXPECT_EQ(argKeys(premature.error().stackFrames().back()), (std::vector<std::string>{"self", "error"}));
}

TEST(VeltoEndpointBase, theBaseParseAlwaysFails) {
  const auto impetus = VeltoImpetus::create("unparsed");
  std::optional<VeltoEndpointOutcome<int>> seen;
  auto endpoint = std::make_shared<UnparsedEndpoint>(VeltoSupportedHttpVerb::get, VeltoEmptyRequestParameters(), nullptr,
                                                     nullptr, [&](auto&, const auto& outcome, const Via&) {
                                                       seen = outcome;
                                                       return VeltoResultVoidSuccess;
                                                     });
  ASSERT_TRUE(endpoint->store(bytesOf("{}"), impetus).hasValue());
  ASSERT_TRUE(endpoint->completed(200, nullptr, impetus).hasValue());
  const auto* failure = seen->getIf<VeltoEndpointOutcome<int>::ApplicationError>();
  ASSERT_NE(failure, nullptr);
  EXPECT_EQ(failure->error.message(), "Sub-classes should implement (and NOT call super)");
  EXPECT_EQ(argKeys(failure->error.stackFrames().front()), (std::vector<std::string>{"downloadedData"}));
}

TEST(VeltoEndpointBase, correlationIdsAreFreshAndTheDumpShowsTheFields) {
  Recorder recorder;
  std::set<boost::uuids::uuid> ids;
  for (int i = 0; i < 1000; ++i) ids.insert(makeEndpoint(recorder)->correlationID());
  EXPECT_EQ(ids.size(), 1000u);

  std::shared_ptr<VeltoRequestSupporting> endpoint = makeEndpoint(recorder);
  const auto text = VeltoDynamicDebugEncoder::encodeToString(
      endpoint, VeltoDynamicDebugEncoderOptions::forLogging().withIncludeTypes(false));
  ASSERT_TRUE(text.hasValue());
  EXPECT_NE(text.value().find("\"correlationID\""), std::string::npos) << text.value();
  EXPECT_NE(text.value().find("\"httpVerb\" : \"get\""), std::string::npos) << text.value();
  EXPECT_NE(text.value().find("\"requestParameters\""), std::string::npos) << text.value();
}

TEST(VeltoEndpointBaseDeathTest, requiresAnOutcomeCallback) {
  EXPECT_DEATH((void)std::make_shared<TextEndpoint>(VeltoSupportedHttpVerb::get, VeltoEmptyRequestParameters(), nullptr,
                                                    nullptr, nullptr),
               "onOutcome is required");
}

}  // namespace
