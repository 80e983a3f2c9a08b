#ifndef VELTRA_BENCH_MEASURED_HTTP_CLIENT_H
#define VELTRA_BENCH_MEASURED_HTTP_CLIENT_H

#include <cstdint>
#include <string>

/// Takes the place of the platform's HTTP client: the same exchanges, through a handle written by
/// hand, that say when they began and ended. What is left of a query is the layer's.

namespace bench {

/// Processor time of the calling thread, and its allocations, at one moment.
struct Moment {
    double nanoseconds;
    std::uint64_t allocations;

    static Moment Now();
};

/// Begin and end of the calling thread's last exchange.
struct LastExchange {
    Moment begin;
    Moment end;
};
LastExchange TheLastExchange();

/// Trusts the authority in that file from now on.
void TrustAuthority(const std::string& caFile);

}  // namespace bench

#endif
