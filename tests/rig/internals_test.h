// What a unit test of internal operations includes: the fixture InternalsTest, HX_INTERNAL and GuardedBuffer.
#pragma once

#include "rig/fixtures.h"
#include "rig/guarded_buffer.h"
#include "rig/internals.h"
