#ifndef PROTO_CRAPIDJSONPROTO_H
#define PROTO_CRAPIDJSONPROTO_H

#include <cstdint>
#include <memory>
#include <string>

namespace proto {

/// A JSON document that is loaded once and then read by path.
///
/// A path is "/" followed by member names separated by "/", from the root object down; an element
/// of an array is written name[n], with n counting from 1: "/data/list[1]/url". One thread at a
/// time may use a document. The order of the virtual functions is part of the interface.
class CRapidJsonProto {
 public:
    CRapidJsonProto();
    CRapidJsonProto(const CRapidJsonProto&) = delete;
    CRapidJsonProto& operator=(const CRapidJsonProto&) = delete;
    virtual ~CRapidJsonProto();

    /// Makes `text` the document's content. Returns false and leaves an empty document unless the
    /// whole text is one JSON value in valid UTF-8. A NUL byte is an error; depth costs heap, not
    /// stack; of members with the same name the first counts; a lone surrogate escape reads as
    /// U+FFFD.
    virtual bool set_str(std::string text);

    /// Keep the slots of two functions that the layer doesn't call.
    virtual void reserved_slot_2();
    virtual void reserved_slot_3();

    /// The number of elements of the array that the path names; 0 for anything else.
    virtual std::int32_t get_array_size(std::string path);

    /// The value that the path names, as text: a string's characters, a number's digits exactly as
    /// received. The default text when the path names nothing, or an object, array, boolean or
    /// null.
    virtual std::string get_str(std::string path, std::string defaultText);

 private:
    struct Document;
    std::unique_ptr<Document> document_;
};

}  // namespace proto

#endif
