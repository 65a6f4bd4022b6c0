// The locale and the clock that targets choose for a run. Used by the targets of texts and dates.
#pragma once

#include "world.h"

/// Chooses the clock, the zone and the answers for dates and times from `data`.
void ChooseClock(Data* data);

/// Chooses the answers of the locale from `data`: most often usual ones, some of any form.
void ChooseLocale(Data* data);
