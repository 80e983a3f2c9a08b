#include "GatewayCall.h"

#include "Log.h"

namespace Veltra {

Oak::Net::CHttpClientRequest MakeGatewayRequest(const GatewayAccess& access, const char* path,
                                                const std::string& body) {
    Oak::Net::CHttpClientRequest request("POST", Oak::Net::URL(access.domain + path));
    request.SetContentType("application/json");
    request.AddHeaderField("Authorization", "Bearer " + access.token);
    request.SetData(body);
    return request;
}

bool SendOnce(const Oak::Net::CHttpClientRequest& request, Oak::Net::CHttpClientResponse& response,
              Oak::Net::HttpClient::Error& error) {
    const Oak::Net::HttpClient client;  // stays alive across the exchange
    return Oak::Net::HttpClient::Send(request, &response, &error);
}

bool SendGatewayCall(const char* operation, const Oak::Net::CHttpClientRequest& request,
                     Oak::Net::CHttpClientResponse& response) {
    const bool sent = SendUntilOk(request, response, [operation](std::int32_t status) {
        VELTRA_LOG(operation, 5, "http client send message failed,errcode:%d", status);
    });
    if (!sent) VELTRA_LOG(operation, 5, "http client send message failed");
    return sent;
}

}  // namespace Veltra
