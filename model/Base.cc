#include "mirelo/model/Base.h"

#include <ostream>

#include "util/Format.h"

namespace mirelo {

std::string MRObject::description() const {
  return format("<%@: %p>", className(), static_cast<const void*>(this));
}

namespace {

const char* errCodeName(std::int32_t code) {
  switch (code) {
    case ErrCodeSuccess: return "ErrCodeSuccess";
    case ErrCodeCommon: return "ErrCodeCommon";
    case ErrCodeUserCancel: return "ErrCodeUserCancel";
    case ErrCodeSentFail: return "ErrCodeSentFail";
    case ErrCodeAuthDeny: return "ErrCodeAuthDeny";
    case ErrCodeUnsupport: return "ErrCodeUnsupport";
    default: return nullptr;
  }
}

}  // namespace

void printReq(const BaseReq& req, std::ostream* os) {
  *os << req.className() << "{type: " << req.type << ", openID: ";
  PrintTo(req.openID, os);
  *os << '}';
}

void printResp(const BaseResp& resp, std::ostream* os) {
  *os << resp.className() << "{errCode: " << resp.errCode;
  if (const char* name = errCodeName(resp.errCode)) *os << " (" << name << ')';
  *os << ", errStr: ";
  PrintTo(resp.errStr, os);
  *os << ", type: " << resp.type << '}';
}

}  // namespace mirelo
