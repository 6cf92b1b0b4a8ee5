// The foundation of the message model: the common root of the model
// classes, kind tests, the request and response bases, and the result codes.
//
// Conventions of every model class (requests, responses, the media message,
// media objects, scene data, jump targets, card items):
//   * Plain mutable value objects with one public data member per field,
//     named after the field, in declaration order.  No class checks or
//     encodes anything; the record conversion and the command builders do.
//   * Objects are made and held through std::shared_ptr.  Every class is
//     default-constructible with std::make_shared<T>(); the classes marked as
//     factories also have `static std::shared_ptr<T> object()` (the same as
//     std::make_shared<T>()).
//   * Every field starts empty: strings null, Data null, held objects,
//     arrays and dictionaries null, numbers 0, flags false, unless a class
//     states another default.
//   * Strings are mirelo::String (nullable, copied on assignment).  Byte
//     buffers are mirelo::Data (immutable; assignment shares the bytes).
//   * A held object, array or dictionary is a std::shared_ptr member: the
//     request keeps the caller's object itself, so later changes the caller
//     makes through its own pointer are seen by the request (and changes the
//     kit makes are seen by the caller).  In particular:
//       - a held dictionary is std::shared_ptr<Dictionary>;
//       - a copied dictionary (only MRLaunchMiniProgramReq::extDic) is
//         std::optional<Dictionary>, nullopt when unset;
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

#include <cstdint>
#include <memory>
#include <string>

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

// Declares the className() of a model class.  Used inside the class body.
#define MIRELO_MODEL_CLASS(Name) \
 public:                         \
  std::string className() const override { return #Name; }

// Declares the factory `object()` of a model class.
#define MIRELO_MODEL_FACTORY(Name) \
 public:                           \
  static std::shared_ptr<Name> object() { return std::make_shared<Name>(); }

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

}  // namespace mirelo
