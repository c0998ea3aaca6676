#include "foundation/streams/OutputStream.h"

namespace Common {

OutputStream::~OutputStream() = default;

} // namespace Common
