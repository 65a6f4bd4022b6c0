// What a target says about the installer before it runs an action.
#pragma once

/// The session that actions are run for.
constexpr uint32_t kSession = 7;

/// Sets a property of the session.
void SetProperty(const std::u16string& name, const std::u16string& value);

/// Returns a property of the session; empty if it is not set.
const std::u16string& PropertyOf(const std::u16string& name);

/// Says whether the session rolls back.
void SetRollback(bool rollback);
