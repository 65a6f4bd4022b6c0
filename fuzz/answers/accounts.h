// What a target asks about accounts after an action.
#pragma once

/// Fails if the run has made an account and the properties do not say its name, its domain and its password.
/// Nobody could use or delete that account. Checks nothing if a call of the run failed on purpose.
void CheckNewAccount();
