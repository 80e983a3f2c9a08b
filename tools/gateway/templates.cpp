#include "templates.h"

#include "gateway.h"
#include "json.h"

#include <stdexcept>

namespace gateway {

std::string render(std::string_view text, const std::map<std::string, std::string>& elements) {
    std::string rendered;
    while (!text.empty()) {
        const auto open = text.find("{{");
        const auto close = open == text.npos ? text.npos : text.find("}}", open);
        if (close == text.npos) break;
        // Of "{{{{name}}" the inner pair counts.
        const auto start = text.rfind("{{", close);
        const auto found = elements.find(std::string(text.substr(start + 2, close - start - 2)));
        rendered += text.substr(0, start);
        rendered += found != elements.end() ? std::string_view(found->second)
                                            : text.substr(start, close + 2 - start);
        text.remove_prefix(close + 2);
    }
    return rendered.append(text);
}

std::vector<Template> shippedTemplates() {
    std::string reason;
    return parseTemplates(kShippedTemplates, reason).value();
}

namespace {

// Where a thing stands that can't be taken, and why not.
struct Refused : std::runtime_error {
    Refused(const std::string& place, const std::string& why)
        : std::runtime_error(place + ": " + why) {}
};

std::string inQuotes(const std::string& text) {
    return '"' + text + '"';
}

std::string textOf(const rapidjson::Value& value, const std::string& place) {
    if (!value.IsString()) throw Refused(place, "is not a text");
    return {value.GetString(), value.GetStringLength()};
}

double temperatureOf(const rapidjson::Value& value, const std::string& place) {
    if (!value.IsNumber() || value.GetDouble() < 0) throw Refused(place, "is not a number from 0");
    return value.GetDouble();
}

std::int32_t countOf(const rapidjson::Value& value, const std::string& place) {
    if (!value.IsInt() || value.GetInt() < 1) throw Refused(place, "is not a whole number from 1");
    return value.GetInt();
}

void take(Template& to, const std::string& name, const rapidjson::Value& value,
          const std::string& place) {
    if (name == "key")
        to.key = textOf(value, place);
    else if (name == "text")
        to.text = textOf(value, place);
    else if (name == "system")
        to.system = textOf(value, place);
    else if (name == "model")
        to.model = textOf(value, place);
    else if (name == "temperature")
        to.temperature = temperatureOf(value, place);
    else if (name == "maxTokens")
        to.maxTokens = countOf(value, place);
    else
        throw Refused(place, R"(is not known; a template has "key", "text", "system", "model", )"
                             R"("temperature" and "maxTokens")");
}

Template templateFrom(const rapidjson::Value& entry, const std::string& place) {
    if (!entry.IsObject()) throw Refused(place, "is not an object");
    Template made;
    for (const auto& [name, value] : entry.GetObject()) {
        const std::string text(name.GetString(), name.GetStringLength());
        take(made, text, value, place + ", " + inQuotes(text));
    }
    for (const auto* needed : {"key", "text"})
        if (member(entry, needed) == nullptr) throw Refused(place, "lacks " + inQuotes(needed));
    return made;
}

std::vector<Template> templatesFrom(const std::string& json) {
    const auto document = parseJson(json);
    if (!document.IsObject()) throw Refused(placeOfJsonError(json), "not a JSON object in UTF-8");
    const auto* list = member(document, "templates");
    if (list == nullptr || !list->IsArray())
        throw Refused("the object", R"(lacks the array "templates")");
    for (const auto& [name, value] : document.GetObject())
        if (textOf(name, "") != "templates")
            throw Refused(inQuotes(textOf(name, "")), R"(is not known; there is "templates")");
    std::vector<Template> templates;
    for (const auto& entry : list->GetArray()) {
        auto place = "template " + std::to_string(templates.size() + 1);
        if (const auto key = textMember(entry, "key")) place += " (" + inQuotes(*key) + ')';
        templates.push_back(templateFrom(entry, place));
    }
    return templates;
}

}  // namespace

std::optional<std::vector<Template>> parseTemplates(const std::string& json, std::string& reason) {
    try {
        return templatesFrom(json);
    } catch (const Refused& refused) {
        reason = refused.what();
        return std::nullopt;
    }
}

}  // namespace gateway
