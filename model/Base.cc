#include "mirelo/model/Base.h"

#include "util/Format.h"

namespace mirelo {

std::string MRObject::description() const {
  return format("<%@: %p>", className(), static_cast<const void*>(this));
}

}  // namespace mirelo
