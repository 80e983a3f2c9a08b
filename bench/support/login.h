#ifndef VELTRA_BENCH_LOGIN_H
#define VELTRA_BENCH_LOGIN_H

#include "support/answerer.h"

#include <Oak/Net/HttpClientOptions.h>
#include <Veltra/Veltra.h>
#include <qlog/qlog.h>

#include <memory>

namespace bench {

/// Logs in at an answerer, with no record written from then on. The monitor runs. Header-only: it
/// belongs to programs that link the whole library.
inline bool LogIn(const Answerer& gateway) {
    qlog_set_handler(nullptr, nullptr, 6);
    Oak::Net::HttpClientOptions options;
    options.caFile = gateway.CaFile();
    Oak::Net::SetHttpClientOptions(options);
    auto license = std::make_shared<Veltra::CLicenseInfo>();
    license->SetLicenseKey("", {{"bench-app", "bench-secret"}});
    return Veltra::Veltra_Enable() && Veltra::Veltra_SetDomain(gateway.Url()) &&
           Veltra::Veltra_Authentication(Veltra::ProductType::Default, license);
}

}  // namespace bench

#endif
