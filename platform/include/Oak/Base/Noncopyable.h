#ifndef OAK_BASE_NONCOPYABLE_H
#define OAK_BASE_NONCOPYABLE_H

namespace Oak::Base {

/// Base of objects that exist once and stay where they are: neither copied nor moved.
class CNoncopyable {
 public:
    CNoncopyable(const CNoncopyable&) = delete;
    CNoncopyable& operator=(const CNoncopyable&) = delete;

 protected:
    CNoncopyable() = default;
    ~CNoncopyable() = default;
};

}  // namespace Oak::Base

#endif
