#pragma once

#include "gateway.h"
#include "json.h"

#include <chrono>
#include <cstdint>
#include <string_view>

namespace gateway {

/// What the gateway has on record, as the control endpoints show it. Each writes the members of an
/// object.
void writeRequest(JsonWriter& writer, const Request& request);
void writeExchange(JsonWriter& writer, const Exchange& exchange);
void writeFault(JsonWriter& writer, const Fault& fault);
void writeFeedback(JsonWriter& writer, const Feedback& feedback);
void writePicture(JsonWriter& writer, const Picture& picture);

std::int64_t sinceEpochMs(std::chrono::system_clock::time_point time);

template <typename List, typename WriteEntry>
void writeList(JsonWriter& writer, std::string_view name, const List& entries,
               WriteEntry writeEntry) {
    write(writer, name);
    writer.StartArray();
    for (const auto& entry : entries) {
        writer.StartObject();
        writeEntry(writer, entry);
        writer.EndObject();
    }
    writer.EndArray();
}

}  // namespace gateway
