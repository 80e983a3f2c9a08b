#include "login.h"

#include "output.h"

#include <Veltra/Veltra.h>

namespace tool {

Login::Login(const std::string& domain, const Credentials& credentials) {
    if (!Veltra::Veltra_Enable()) throw Failure("the library cannot be enabled");
    if (!domain.empty() && !Veltra::Veltra_SetDomain(domain))
        throw Failure(domain + " does not answer like a gateway", Veltra::Veltra_LastCall());
    if (!Veltra::Veltra_Authentication(Veltra::ProductType::Default, credentials.licence()))
        throw Failure("the login failed: no key pair yielded a token", Veltra::Veltra_LastCall());
}

Login::~Login() {
    Veltra::Veltra_Disable();
}

}  // namespace tool
