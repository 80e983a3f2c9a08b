#ifndef VELTRA_BENCH_ANSWERER_H
#define VELTRA_BENCH_ANSWERER_H

#include <string>

namespace bench {

enum class Scheme { http, https };

/// A gateway that costs next to nothing: one thread a connection, one read and one write an
/// exchange, the same bytes for every query. It runs in a process of its own, so that the time of
/// this process is the client's alone, and ends with this object or with this process.
///
/// Made before the process has threads: it forks.
class Answerer {
 public:
    /// Queries are answered with a body of `bodyBytes` bytes (64 at least).
    Answerer(Scheme scheme, std::size_t bodyBytes);
    ~Answerer();
    Answerer(const Answerer&) = delete;
    Answerer& operator=(const Answerer&) = delete;

    /// Scheme, host and port.
    const std::string& Url() const { return url_; }

    /// A file with the authority to trust; empty for http.
    const std::string& CaFile() const { return caFile_; }

 private:
    std::string url_;
    std::string caFile_;
    int life_ = -1;  // the child ends when this end of a pipe is closed
    int child_ = -1;
};

/// The access token that every answerer grants.
inline constexpr const char* grantedToken = "5f0c8a52d1b94f0e9e0c6f2f7a3b1c4d";

/// Path of the queries.
inline constexpr const char* queryPath =
    "/api/tmqgw/aillm/v1/third/text/prompt/by/template/analysis";

/// A query's answer in the gateway's envelope, `bodyBytes` bytes long.
std::string QueryAnswer(std::size_t bodyBytes);

}  // namespace bench

#endif
