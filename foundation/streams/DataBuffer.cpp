#include "foundation/streams/DataBuffer.h"

namespace Common {

DataBuffer::~DataBuffer() = default;

void DataBuffer::flush() {}

} // namespace Common
