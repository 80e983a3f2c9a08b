#include "templates.h"

#include "gateway.h"
#include "json.h"

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

std::optional<std::vector<Template>> parseTemplates(const std::string& json, std::string& reason) {
    const auto document = parseJson(json);
    const auto* list = member(document, "templates");
    if (list == nullptr || !list->IsArray()) {
        reason = R"(not a JSON object with an array "templates")";
        return std::nullopt;
    }
    std::vector<Template> templates;
    for (const auto& entry : list->GetArray()) {
        const auto key = textMember(entry, "key");
        const auto text = textMember(entry, "text");
        if (!key || !text) {
            reason = R"(a template needs the texts "key" and "text")";
            return std::nullopt;
        }
        templates.push_back({*key, *text});
    }
    return templates;
}

}  // namespace gateway
