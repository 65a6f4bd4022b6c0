// The installer's session: properties, records, messages, modes. Part of the world.
#pragma once

#include <windows.h>

#include <msi.h>
#include <msiquery.h>

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "rig/rig.h"

namespace rig {

/// One message that the library sent with MsiProcessMessage.
struct Message {
  unsigned type;     ///< The type with its flags.
  std::string text;  ///< Field 0 with "[1]", "[2]" ... replaced, as UTF-8; empty without a field 0.
  std::vector<std::string> fields;  ///< Fields 0, 1 ... as UTF-8.
};

/// An installer session as the library meets it. Values are stored as wide text; the 8-bit functions convert
/// them with `codePage`.
class InstallerSession {
 public:
  /// Creates the part of the world that belongs to this rig.
  explicit InstallerSession(Rig& rig);
  /// Routes the functions of this part here.
  void Install();

  /// Sets a property, given as UTF-8; an empty value unsets it.
  void Set(const std::string& name, std::string_view value);
  /// Sets the property to wide text.
  void Set(const std::string& name, std::wstring_view value);
  /// Returns a property's value as UTF-8; empty if unset.
  std::string Get(const std::string& name) const;
  /// Makes reading the property return `error`.
  void FailReading(const std::string& name, UINT error = ERROR_FUNCTION_FAILED) { unreadable_[name] = error; }
  /// Makes setting the property return `error` and change nothing.
  void FailSetting(const std::string& name, UINT error = ERROR_FUNCTION_FAILED) { unsettable_[name] = error; }
  /// Returns the properties that the library set, "NAME = value", in order.
  const std::vector<std::string>& Published() const { return published_; }
  /// Returns the texts of the INSTALLMESSAGE_INFO messages, as they are in the installer's log.
  std::vector<std::string> Log() const;
  /// Returns every message, in order.
  const std::vector<Message>& Messages() const { return messages_; }

  /// True if the session is in rollback (MsiGetMode with MSIRUNMODE_ROLLBACK); other modes are off.
  bool rollback = false;
  /// True if no record can be created.
  bool refusesRecords = false;
  /// The code page of the 8-bit functions.
  UINT codePage = 1252;
  /// The result of MsiProcessMessage.
  int answer = IDOK;
  /// The user interface level that MsiSetInternalUI set.
  INSTALLUILEVEL uiLevel = INSTALLUILEVEL_FULL;

 private:
  /// A record that the library created.
  struct Record {
    std::vector<std::wstring> fields;
  };

  /// Converts wide text to the text that the 8-bit functions return.
  std::string Narrow(std::wstring_view text) const;
  /// Converts 8-bit text to wide text.
  std::wstring Widen(std::string_view text) const;
  /// Reads a property; returns the installer's error.
  UINT Read(const std::string& name, std::wstring& value) const;
  /// Sets a property; returns the installer's error.
  UINT Write(const std::string& name, std::wstring value);
  /// Sets a field of a record; returns the installer's error.
  UINT SetField(MSIHANDLE record, UINT field, std::wstring value);
  /// Records a message; returns MsiProcessMessage's result.
  int Process(INSTALLMESSAGE type, MSIHANDLE record);

  Rig& rig_;
  std::map<std::string, std::wstring> properties_;
  std::map<std::string, UINT> unreadable_;
  std::map<std::string, UINT> unsettable_;
  std::vector<std::string> published_;
  std::map<MSIHANDLE, Record> records_;
  MSIHANDLE nextRecord_ = 5001;
  std::vector<Message> messages_;
};

}  // namespace rig
