// The installer's session: properties, records, messages, modes. Part of a world.
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

/// An installer session as the library meets it. Values are kept wide; the 8-bit functions see them through
/// `codePage`.
class InstallerSession {
 public:
  /// The part of the world that belongs to this rig.
  explicit InstallerSession(Rig& rig);
  /// Sends its functions here.
  void Install();

  /// Sets a property, given as UTF-8; an empty value is an unset property.
  void Set(const std::string& name, std::string_view value);
  /// Sets it from wide text.
  void Set(const std::string& name, std::wstring_view value);
  /// A property's value as UTF-8; empty when unset.
  std::string Get(const std::string& name) const;
  /// Reading the property returns `error`.
  void FailReading(const std::string& name, UINT error = ERROR_FUNCTION_FAILED) { unreadable_[name] = error; }
  /// Setting the property returns `error` and changes nothing.
  void FailSetting(const std::string& name, UINT error = ERROR_FUNCTION_FAILED) { unsettable_[name] = error; }
  /// The properties that the library set, "NAME = value", in order.
  const std::vector<std::string>& Published() const { return published_; }
  /// The texts of the INSTALLMESSAGE_INFO messages, as they are in the installer's log.
  std::vector<std::string> Log() const;
  /// Every message.
  const std::vector<Message>& Messages() const { return messages_; }

  /// The session is in rollback (MsiGetMode with MSIRUNMODE_ROLLBACK); other modes are off.
  bool rollback = false;
  /// No record can be made.
  bool refusesRecords = false;
  /// The code page of the 8-bit functions.
  UINT codePage = 1252;
  /// What MsiProcessMessage returns.
  int answer = IDOK;
  /// The user interface level that MsiSetInternalUI set.
  INSTALLUILEVEL uiLevel = INSTALLUILEVEL_FULL;

 private:
  /// A record that the library made.
  struct Record {
    std::vector<std::wstring> fields;
  };

  /// Wide text as the 8-bit functions give it.
  std::string Narrow(std::wstring_view text) const;
  /// The other way.
  std::wstring Widen(std::string_view text) const;
  /// Reads a property; returns the installer's error.
  UINT Read(const std::string& name, std::wstring& value) const;
  /// Sets a property; returns the installer's error.
  UINT Write(const std::string& name, std::wstring value);
  /// Sets a field of a record; returns the installer's error.
  UINT SetField(MSIHANDLE record, UINT field, std::wstring value);
  /// Takes a message; returns MsiProcessMessage's result.
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
