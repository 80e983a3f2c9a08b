#ifndef VELTRA_BENCH_PLAIN_CLIENT_H
#define VELTRA_BENCH_PLAIN_CLIENT_H

#include <curl/curl.h>

#include <memory>
#include <string>

namespace bench {

struct CurlDeleter {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

/// The baseline of the queries, as one writes it by hand for one gateway: a libcurl handle that is
/// set up once and kept with its connection, the request's bytes ready, the answer read with
/// RapidJSON. One thread at a time uses one.
class PlainClient {
 public:
    /// `caFile` is empty for http.
    PlainClient(const std::string& url, const std::string& caFile, std::string body);
    PlainClient(const PlainClient&) = delete;  // the handle points into this object
    PlainClient& operator=(const PlainClient&) = delete;

    /// One query; its text in `answer`. False when anything went wrong.
    bool Query(std::string& answer);

 private:
    std::unique_ptr<CURL, CurlDeleter> easy_;
    std::unique_ptr<curl_slist, CurlDeleter> headers_;
    std::string body_;
    std::string received_;
};

}  // namespace bench

#endif
