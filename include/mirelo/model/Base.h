// The foundation of the message model: the common root of the model
// classes, kind tests, the request and response bases, and the result codes.
//
// Conventions of every model class (requests, responses, the media message,
// media objects, scene data, jump targets, card items):
//   * Plain mutable value objects with one public data member per field,
//     named after the field, in declaration order.  No class checks or
//     encodes anything; the record conversion and the command builders do.
//   * Objects are made and held through std::shared_ptr.  Every class that
//     can be made has `static std::shared_ptr<T> object()`, the same as
//     std::make_shared<T>().
//   * Every field starts empty: strings null, Data null, held objects,
//     arrays and dictionaries null, numbers 0, flags false, unless a class
//     states another default.
//   * Strings are mirelo::String (nullable, copied on assignment).  Byte
//     buffers are mirelo::Data (immutable; assignment shares the bytes).
//   * Every object, array or dictionary field reads like a pointer: null
//     when unset (an empty dictionary is set, not null), `if (f)`, `*f`,
//     `f->`.  A held field is a std::shared_ptr member: the request keeps
//     the caller's object itself, so later changes the caller makes through
//     its own pointer are seen by the request (and changes the kit makes are
//     seen by the caller).  In particular:
//       - a held dictionary is std::shared_ptr<Dictionary>;
//       - a copied dictionary (only MRLaunchMiniProgramReq::extDic) is
//         Copied<Dictionary>: read the same way, but assigning a Dictionary
//         or a std::shared_ptr<Dictionary> stores a copy of it;
//       - a held array of card items is std::shared_ptr<std::vector<
//         std::shared_ptr<Item>>> (see MRCardItemArray in Requests.h).
//   * A few string fields are "held" rather than copied on the messenger's
//     side; String has no shared mutable form, so they are plain String
//     values like every other string.
//   * Integer fields have the protocol's widths: int32_t for int, uint32_t
//     for unsigned int, uint64_t for unsigned long, int64_t for signed 64-bit.
//   * className() names the most-derived class; description() prints
//     "<ClassName: 0x...>" with the object's address, as the platform prints
//     an object without a description of its own.  MRMediaMessage is the one
//     exception: see describe(const MRMediaMessage&) in MediaMessage.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "mirelo/String.h"

namespace mirelo {

// ---- kind tests ----------------------------------------------------------

// True when `p` is non-null and its object is a T or a subclass of T (the
// platform's isKindOfClass:).
template <class T, class U>
bool isKindOf(const std::shared_ptr<U>& p) {
  return dynamic_cast<const T*>(p.get()) != nullptr;
}
template <class T, class U>
bool isKindOf(const U* p) {
  return dynamic_cast<const T*>(p) != nullptr;
}

// `p` as a T when it is a T or a subclass of T, else null.  The result
// shares ownership with `p`.
template <class T, class U>
std::shared_ptr<T> kindCast(const std::shared_ptr<U>& p) {
  return std::dynamic_pointer_cast<T>(p);
}

// ---- the common root -----------------------------------------------------

// The root of the model classes that print as "<ClassName: 0x...>".  It has
// no fields and stands for the platform's root object; MRMediaMessage does
// not derive from it because its own `description` is a data field.
class MRObject {
 public:
  MRObject() = default;
  MRObject(const MRObject&) = default;
  MRObject& operator=(const MRObject&) = default;
  virtual ~MRObject() = default;

  // The name of the most-derived class, e.g. "SendAuthReq".
  virtual std::string className() const = 0;
  // "<ClassName: 0x...>" with this object's address.
  std::string description() const;
};

// Declares the className() and the factory `object()` of a model class.
// Used inside the class body.
#define MIRELO_MODEL_CLASS(Name)                                            \
 public:                                                                    \
  std::string className() const override { return #Name; }                  \
  static std::shared_ptr<Name> object() { return std::make_shared<Name>(); }

// Formerly declared `object()` for some classes; every class has it now.
#define MIRELO_MODEL_FACTORY(Name)

// ---- copied fields -----------------------------------------------------------

// A field that keeps its own copy of what is assigned to it.  It reads like
// the held fields (null when unset, `if (f)`, `*f`, `f->`), but assigning a
// T or a std::shared_ptr<T> stores a copy, so later changes through the
// caller's object do not reach the request.  Copying the request copies the
// value too.
template <class T>
class Copied {
 public:
  Copied() = default;
  Copied(std::nullptr_t) {}
  Copied(std::nullopt_t) {}
  Copied(const T& value) : p_(std::make_shared<T>(value)) {}
  Copied(T&& value) : p_(std::make_shared<T>(std::move(value))) {}
  Copied(const std::shared_ptr<T>& p) : p_(p ? std::make_shared<T>(*p) : nullptr) {}
  Copied(const std::optional<T>& o) : p_(o ? std::make_shared<T>(*o) : nullptr) {}
  Copied(const Copied& other) : Copied(other.p_) {}
  Copied(Copied&&) noexcept = default;
  Copied& operator=(const Copied& other) {
    if (this != &other) p_ = other.p_ ? std::make_shared<T>(*other.p_) : nullptr;
    return *this;
  }
  Copied& operator=(Copied&&) noexcept = default;
  ~Copied() = default;

  explicit operator bool() const { return p_ != nullptr; }
  bool has_value() const { return p_ != nullptr; }
  T& operator*() const { return *p_; }
  T* operator->() const { return p_.get(); }
  T* get() const { return p_.get(); }
  void reset() { p_.reset(); }

  friend bool operator==(const Copied& a, std::nullptr_t) { return a.p_ == nullptr; }

 private:
  std::shared_ptr<T> p_;
};

// ---- result codes ----------------------------------------------------------

// The values of BaseResp::errCode that the kit names.  The messenger may
// send others through its result URLs; they are passed on unchanged.
enum MRErrCode : std::int32_t {
  ErrCodeSuccess = 0,
  ErrCodeCommon = -1,
  ErrCodeUserCancel = -2,
  ErrCodeSentFail = -3,
  ErrCodeAuthDeny = -4,
  ErrCodeUnsupport = -5,
};

// ---- request and response bases -------------------------------------------

// The base of every request, from the host to the messenger or back.
class BaseReq : public MRObject {
  MIRELO_MODEL_CLASS(BaseReq)
 public:
  // Kind of request.  The request classes never set it themselves, except
  // the web-view type of MROpenTypeWebViewReq (MROpenWebViewType).
  std::int32_t type = 0;
  // The signed-in user's open id; needed for the specified-session scene.
  String openID;
};

// The base of every response.
class BaseResp : public MRObject {
  MIRELO_MODEL_CLASS(BaseResp)
 public:
  // Result code; 0 is success (MRErrCode).
  std::int32_t errCode = 0;
  // Error text.
  String errStr;
  // Response kind.
  std::int32_t type = 0;
};

// ---- printing in tests --------------------------------------------------------

// How a request or a response prints where a test framework shows it:
// the class and the base fields, e.g.
//   SendAuthResp{errCode: -2 (ErrCodeUserCancel), errStr: null, type: 0}
// GoogleTest finds these by argument-dependent lookup, also through a
// std::shared_ptr (which it prints with the object it points to).
void printReq(const BaseReq& req, std::ostream* os);
void printResp(const BaseResp& resp, std::ostream* os);
template <class T>
  requires std::is_base_of_v<BaseReq, T>
void PrintTo(const T& req, std::ostream* os) {
  printReq(req, os);
}
template <class T>
  requires std::is_base_of_v<BaseResp, T>
void PrintTo(const T& resp, std::ostream* os) {
  printResp(resp, os);
}

}  // namespace mirelo
