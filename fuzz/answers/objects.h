// What a target asks about COM after an action.
#pragma once

/// Returns how often COM is started and not ended.
int ComStarts();
