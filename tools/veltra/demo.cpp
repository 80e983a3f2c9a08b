#include "commands.h"
#include "common_options.h"
#include "credentials.h"
#include "demo_steps.h"
#include "gateway_control.h"
#include "output.h"
#include "records.h"

#include <Veltra/Veltra.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

namespace tool {

namespace {

constexpr const char* kDemoEnd =
    "Needs a local gateway with its built-in templates; if it has a model, any answer of that is\n"
    "accepted. Without keys the pair demo:demo is used, which veltra-gateway accepts if it is\n"
    "started without --key. The library's log records are shown when a step deviates, or all the\n"
    "time with --log-level.\n"
    "\nExample:\n"
    "  veltra gateway --port 8080 &\n"
    "  veltra demo --gateway http://127.0.0.1:8080\n";

constexpr const char* kDemoOutcome =
    "\nJSON: {\"ok\":true,\"steps\":[{\"number\":N,\"title\":\"..\",\"result\":\"..\"}]}; after a\n"
    "  deviation \"ok\" is false, followed by \"code\":0 and \"message\", and the last step has\n"
    "  \"deviation\" in place of \"result\".\n"
    "\nExit status: 0 every step went as expected, 1 a step deviated, 2 wrong usage.";

struct DemoOptions {
    CommonOptions common;  // the domain is the gateway
    std::string control;
    CLI::Option* logLevel = nullptr;
};

/// Shows the steps as they end, as text, or all of them at the end, as JSON.
class Report {
 public:
    explicit Report(bool json) : json_(json) { steps_.beginArray(); }

    void add(std::size_t number, const Demo::Step& step, const std::string& result) {
        addJsonStep(number, step, "result", result);
        if (json_) return;
        const std::string_view pad = number < 10 ? " " : "";
        printLine(printable(std::string(pad) + std::to_string(number) + ". " + step.title + ": " +
                            result));
    }

    void addDeviation(std::size_t number, const Demo::Step& step, const std::string& deviation) {
        addJsonStep(number, step, "deviation", deviation);
        deviation_ =
            "deviation in step " + std::to_string(number) + ", " + step.title + ": " + deviation;
        complain(deviation_);
    }

    void end(bool ok) {
        steps_.endArray();
        if (json_) {
            printJson(ok, [&](JsonWriter& writer) {
                if (!ok) writer.failure(Failure(deviation_));
                writer.name("steps");
                writer.json(steps_.written());
            });
        } else if (ok) {
            printLine("Every step went as expected.");
        }
    }

 private:
    void addJsonStep(std::size_t number, const Demo::Step& step, std::string_view kind,
                     const std::string& text) {
        steps_.beginObject();
        steps_.member("number", static_cast<std::int32_t>(number));
        steps_.member("title", step.title);
        steps_.member(kind, text);
        steps_.endObject();
    }

    const bool json_;
    JsonWriter steps_;
    std::string deviation_;
};

/// Runs the steps up to the first that deviates.
bool runSteps(Demo& demo, Report& report) {
    const auto steps = demo.steps();
    for (std::size_t i = 0; i < steps.size(); ++i) {
        try {
            demo.beginStep();
            report.add(i + 1, steps[i], steps[i].run());
        } catch (const std::exception& problem) {
            report.addDeviation(i + 1, steps[i], problem.what());
            return false;
        }
    }
    return true;
}

int runDemo(const DemoOptions& options) {
    const auto& common = options.common;
    const auto credentials =
        findCredentials(common.credentialsFile).value_or(Credentials{{{"demo", "demo"}}, ""});
    Oak::Net::SetHttpClientOptions(common.http);
    const bool watched = options.logLevel->count() > 0;
    Records records(common.logLevel, credentials,
                    watched ? Records::Mode::Print : Records::Mode::Hold);
    const std::string& controlUrl = options.control.empty() ? common.domain : options.control;
    Demo demo(common.domain, GatewayControl(controlUrl, common.http.caFile), credentials);
    Report report(common.json);
    const bool ok = runSteps(demo, report);
    report.end(ok);
    if (!ok) {
        records.printHeld();
        Veltra::Veltra_Disable();
    }
    return ok ? kSuccess : kFailure;
}

}  // namespace

void addDemo(CLI::App& app, Command& chosen) {
    auto* command = app.add_subcommand(
        "demo", "Show login, screening, queries, token renewal and feedback on a local gateway");
    const auto options = std::make_shared<DemoOptions>();
    command->footer(std::string(kDemoEnd) + kKeysHelp + kDemoOutcome);
    command
        ->add_option("--gateway", options->common.domain, "The gateway: scheme and host (required)")
        ->option_text("URL")
        ->required()
        ->transform(gatewayUrl());
    command
        ->add_option("--control", options->control,
                     "Where its control endpoints are (default: the gateway)")
        ->option_text("URL")
        ->transform(gatewayUrl());
    addConnection(*command, options->common);
    addCredentials(*command, options->common);
    options->logLevel = addLogLevel(*command, options->common);
    addJson(*command, options->common);
    command->callback([options, &chosen] { chosen = [options] { return runDemo(*options); }; });
}

}  // namespace tool
