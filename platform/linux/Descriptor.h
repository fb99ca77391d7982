// The descriptors of the layer's own objects.
#pragma once

#include <bsd/LDescriptor.h>

namespace platform {

using Descriptor = LDescriptor;

}  // namespace platform
