// What an action's test includes: the fixture ActionTest and the comparisons.
#pragma once

#include "rig/failures.h"
#include "rig/fixtures.h"
#include "rig/guarded_buffer.h"
