#include "foundation/OutputStream.h"

namespace Common {

OutputStream::~OutputStream() = default;

} // namespace Common
