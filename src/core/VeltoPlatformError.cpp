#include "velto/core/VeltoPlatformError.hpp"

#include "velto/core/VeltoError.hpp"
#include "velto/core/VeltoInitializerError.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/detail/TypeName.hpp"

namespace {

class BasicPlatformError final : public VeltoPlatformError {
 public:
  BasicPlatformError(std::string domain, std::int64_t code, std::string description, VeltoArgs userInfo,
                     std::shared_ptr<const VeltoPlatformError> underlying)
      : domain_(std::move(domain)),
        code_(code),
        description_(std::move(description)),
        userInfo_(std::move(userInfo)),
        underlying_(std::move(underlying)) {}

  std::string domain() const override { return domain_; }
  std::int64_t code() const override { return code_; }
  std::string localizedDescription() const override { return description_; }
  const VeltoArgs& userInfo() const override { return userInfo_; }
  std::shared_ptr<const VeltoPlatformError> underlyingError() const override { return underlying_; }

 private:
  std::string domain_;
  std::int64_t code_;
  std::string description_;
  VeltoArgs userInfo_;
  std::shared_ptr<const VeltoPlatformError> underlying_;
};

}  // namespace

std::shared_ptr<const VeltoPlatformError> VeltoPlatformError::make(std::string domain, std::int64_t code,
                                                                   std::string localizedDescription, VeltoArgs userInfo,
                                                                   std::shared_ptr<const VeltoPlatformError> underlyingError) {
  return std::make_shared<const BasicPlatformError>(std::move(domain), code, std::move(localizedDescription),
                                                    std::move(userInfo), std::move(underlyingError));
}

std::shared_ptr<const VeltoPlatformError> VeltoPlatformError::fromException(std::exception_ptr exception) {
  if (!exception) velto::detail::fatalStop("VeltoPlatformError::fromException: no exception");
  try {
    std::rethrow_exception(exception);
  } catch (const VeltoError& error) {
    return std::make_shared<const VeltoError>(error);
  } catch (const VeltoInitializerError& error) {
    return std::make_shared<const VeltoInitializerError>(error);
  } catch (const std::shared_ptr<const VeltoPlatformError>& error) {
    if (error) return error;
    return make(std::string(exceptionDomain), 2, "unknown exception");
  } catch (const std::exception& error) {
    return make(std::string(exceptionDomain), 1, error.what(), VeltoArgs{{"type", velto::detail::typeName(typeid(error))}});
  } catch (...) {
    return make(std::string(exceptionDomain), 2, "unknown exception");
  }
}

std::string VeltoInitializerError::domain() const { return "VeltoInitializerError"; }

std::string VeltoInitializerError::localizedDescription() const {
  return "The operation couldn\u2019t be completed. (VeltoInitializerError error 1.)";
}

const VeltoArgs& VeltoInitializerError::userInfo() const {
  static const VeltoArgs empty;
  return empty;
}
