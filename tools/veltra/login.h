#pragma once

#include "credentials.h"

#include <string>

namespace tool {

/// The layer, enabled and logged in from here on to the end of the object.
class Login {
 public:
    /// An empty domain stands for the built-in endpoints. Throws Failure.
    Login(const std::string& domain, const Credentials& credentials);
    ~Login();
    Login(const Login&) = delete;
    Login& operator=(const Login&) = delete;
};

}  // namespace tool
