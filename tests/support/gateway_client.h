#ifndef TESTS_SUPPORT_GATEWAY_CLIENT_H
#define TESTS_SUPPORT_GATEWAY_CLIENT_H

// A client of the local gateway that is not the library: it sends what a test says, right or wrong.

#include "gateway/gateway.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

struct Reply {
    CURLcode code = CURLE_OK;
    long status = 0;
    std::string body;
};

inline Reply Send(const std::string& url, const std::string& ca, const std::string& body,
                  const std::string& token = {}, const char* method = "POST",
                  const std::vector<std::string>& headers = {}, long limitMs = 60000) {
    Reply reply;
    const std::unique_ptr<CURL, void (*)(CURL*)> handle(curl_easy_init(), curl_easy_cleanup);
    CURL* const curl = handle.get();
    const auto set = [curl](auto option, auto value) { curl_easy_setopt(curl, option, value); };
    const auto append = +[](char* data, std::size_t, std::size_t size, void* to) {
        static_cast<std::string*>(to)->append(data, size);
        return size;
    };
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_CUSTOMREQUEST, method);
    set(CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    set(CURLOPT_POSTFIELDS, body.c_str());
    set(CURLOPT_NOPROXY, "*");
    set(CURLOPT_TIMEOUT_MS, limitMs);
    set(CURLOPT_WRITEFUNCTION, append);
    set(CURLOPT_WRITEDATA, &reply.body);
    set(CURLOPT_HTTPAUTH, CURLAUTH_BEARER);
    set(CURLOPT_XOAUTH2_BEARER, token.c_str());
    curl_blob authority{const_cast<char*>(ca.data()), ca.size(), CURL_BLOB_NOCOPY};
    if (!ca.empty()) set(CURLOPT_CAINFO_BLOB, &authority);
    curl_slist* list = nullptr;
    for (const auto& header : headers)
        list = curl_slist_append(list, header.c_str());
    set(CURLOPT_HTTPHEADER, list);
    reply.code = curl_easy_perform(curl);
    curl_slist_free_all(list);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
    return reply;
}

inline bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != text.npos;
}

/// The text member of that name, which the text is expected to have.
inline std::string Member(const std::string& text, const std::string& name) {
    const auto at = text.find('"' + name + "\":\"");
    EXPECT_NE(at, text.npos) << name << " in " << text;
    const auto begin = at + name.size() + 4;
    return at == text.npos ? "" : text.substr(begin, text.find('"', begin) - begin);
}

inline const std::string accessKeys = R"({"appKey":"app","secretKey":"secret"})";

/// Texts stand in it as they must stand in JSON.
inline std::string QueryBody(const std::string& key, const std::string& elements,
                             const std::string& words = "", const std::string& tags = "") {
    return R"({"traceId":"t","promptKey":")" + key + R"(","replaceElements":{)" + elements +
           R"(},"sensitiveContentCfg":{"inputWords":[)" + words + R"(],"filterTags":[)" + tags +
           "]}}";
}

/// A gateway that runs and takes `accessKeys`.
class RunningGateway : public gateway::Gateway {
 public:
    explicit RunningGateway(gateway::Options with = {}) : Gateway(WithKeys(std::move(with))) {
        EXPECT_TRUE(start()) << reason();
    }
    Reply Post(std::string_view path, const std::string& body, const std::string& token = {}) {
        return Send(baseUrl() + std::string(path), caPem(), body, token);
    }
    std::string Token() {
        return Member(Post(gateway::kTokenPath, accessKeys).body, "accessToken");
    }

 private:
    static gateway::Options WithKeys(gateway::Options with) {
        with.keys = {{"app", "secret"}, {"app2", "secret2"}};
        return with;
    }
};

}  // namespace TestSupport

#endif
