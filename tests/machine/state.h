// The whole machine, as far as an installation can change it.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "machine/texts.h"

namespace machine {

/// Returns the access list of a file or folder in the system's own notation, with "USER" for the user of this
/// process; "(unreadable)" if it cannot be read.
std::string AccessTo(const std::wstring& path);

/// Returns true if an access list in that notation has an entry that is not inherited.
bool HasOwnEntry(const std::string& list);

/// Returns the identifier of this process's user in the system's own notation; empty if it is unknown.
std::string UserIdentifier();

/// Returns true if this Windows is Wine's: ntdll.dll exports "wine_get_version".
bool IsWine();

/// How much of the machine is compared.
enum class Scope {
  kWhole,   ///< everything, because nothing but the tests changes a Windows of Wine
  kPlaces,  ///< what places.h lists, and the products with names
};

/// Texts that are shown as other ones, such as product codes as names: each (text, shown).
using Names = std::vector<std::pair<std::string, std::string>>;

/// What State::Since shows of a file: only its name, or its size and hash too.
enum class Shown { kNames, kContents };

/// Returns the size of `bytes`, "/", and their hash (FNV-1a, 64 bits), in decimal digits.
std::string Hash(const std::string& bytes);

/// Returns the bytes of a file, also of one that is in use; "(unreadable)" if it cannot be opened.
std::string ContentOf(const std::wstring& path);

/// The state of the machine at one moment: each file and folder of drive C: with its content, and with its
/// access list if that is unusual (in the Windows folder, only with size and time); each value and key of the
/// registry that an installation can reach; each service's state; each product that the engine knows. On a
/// Windows that other programs change meanwhile, only the places of places.h: access lists are compared but
/// not shown, and of a service's key only what a package writes is there.
///
/// Left out are the engine's own data (its cache and its keys) and whatever changes by itself. Accounts and
/// the firewall's exceptions are left out because the engine of these tests keeps them for one process only.
class State {
 public:
  /// Returns the current state. Throws std::runtime_error if it cannot be read.
  static State Now(const Names& names, Scope scope = IsWine() ? Scope::kWhole : Scope::kPlaces);

  /// Returns the changes since `before`, ordered by name: "+ NAME" is new, "- NAME" is gone, "~ NAME" has
  /// changed. Folders and keys end in a backslash; the content of deleted ones is not listed. A new or
  /// changed name is followed by " = " and its value. The content of a file is left out, or shown as Hash
  /// does; that of a file in the Windows folder is always left out.
  std::vector<std::string> Since(const State& before, Shown shown = Shown::kNames) const;

 private:
  struct Entry {
    std::string value;    ///< what is compared
    std::string shown;    ///< the shown part, after " = "; empty if nothing is shown
    std::string content;  ///< the hash of a file, which is shown only if it is asked for
  };
  class Collector;

  std::map<std::string, Entry> entries_;
};

}  // namespace machine
