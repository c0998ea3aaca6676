#include "common/threads/Threadable.h"

namespace ORBCOMMON {

Threadable::~Threadable() = default;

void Threadable::finish() {}

} // namespace ORBCOMMON
