#include "login.h"

#include "output.h"

#include <Veltra/Veltra.h>

namespace tool {

Login::Login(const std::string& domain, const Credentials& credentials) {
    if (!Veltra::Veltra_Enable()) throw Failure("the library cannot be enabled");
    if (!domain.empty() && !Veltra::Veltra_SetDomain(domain))
        throw Failure(domain + " does not answer as a gateway does");
    if (!Veltra::Veltra_Authentication(Veltra::ProductType::Default, credentials.licence()))
        throw Failure("the login was refused: no key pair gave a token");
}

Login::~Login() {
    Veltra::Veltra_Disable();
}

}  // namespace tool
