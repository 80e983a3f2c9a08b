#include "commands.h"
#include "common_options.h"
#include "output.h"
#include "records.h"

#include <Veltra/Veltra.h>

#include <memory>

namespace tool {

namespace {

constexpr const char* kProbeEnd =
    "Needs no keys.\n"
    "\nExamples:\n"
    "  veltra probe https://gateway.example\n"
    "  veltra probe https://gateway.example --proxy direct --timeout-ms 3000 --json\n"
    "\nJSON: {\"ok\":true,\"domain\":\"..\",REPORT}, or\n"
    "  {\"ok\":false,\"code\":0,\"message\":\"..\",REPORT}; REPORT is \"outcome\":\"..\",\n"
    "  \"detail\":\"..\",\"attempts\":N,\"httpStatus\":N\n"
    "\nExit status: 0 the gateway answers, 1 it doesn't, 2 wrong usage.";

int probe(const CommonOptions& options) {
    const std::string& domain = options.domain;
    requireUtf8(domain, "the URL");
    Oak::Net::SetHttpClientOptions(options.http);
    const Records records(options.logLevel, {});
    const bool answers = Veltra::Veltra_Enable() && Veltra::Veltra_IsDomainValid(domain);
    const auto report = Veltra::Veltra_LastCall();
    Veltra::Veltra_Disable();
    if (!answers) {
        reportFailure(options.json, Failure(domain + " does not answer like a gateway", report));
        return kFailure;
    }
    if (options.json)
        printJson(true, [&](JsonWriter& writer) {
            writer.member("domain", domain);
            writer.report(report);
        });
    else
        printLine(domain + " answers");
    return kSuccess;
}

}  // namespace

void addProbe(CLI::App& app, Command& chosen) {
    auto* command = app.add_subcommand("probe", "Tell whether a gateway answers");
    const auto options = std::make_shared<CommonOptions>();
    command->footer(kProbeEnd);
    command->add_option("URL", options->domain, "The gateway: scheme and host")
        ->required()
        ->transform(gatewayUrl());
    addConnection(*command, *options);
    addLogLevel(*command, *options);
    addJson(*command, *options);
    command->callback([options, &chosen] { chosen = [options] { return probe(*options); }; });
}

}  // namespace tool
