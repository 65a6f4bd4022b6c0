# shellcheck shell=bash
# The commands of ./hx for authors of packages. Sourced by ./hx, not run.
#
# shellcheck disable=SC2154  # set by ./hx

help_package() {
  cat <<HELP
usage: ./hx package SOURCE.wxs --processor arm64|x64 [--define NAME=VALUE]... [--out FILE]

Makes an installation package from your source, with the compilers that authors use on Windows (candle and light) and this
project's fragments and library. Files are searched in the folder of SOURCE. Builds the library if it is not built, and
checks the package by the rules of the fragments ("./hx check-package" checks more).

  --processor P         the processor of the package and of its library: arm64 or x64
  --define NAME=VALUE   a variable of the source; LibraryFile is set already
  --out FILE            the package; without it, build/packages/own/SOURCE-P.msi

Writes nothing else, and nothing into the folder of SOURCE. The exit status is 0 if the package was made and has no error.
HELP
}

help_check-package() {
  cat <<HELP
usage: ./hx check-package PACKAGE.msi

Checks a package of any author, whichever compiler made it, and prints what is wrong and what to do:

  - the rules of this project's fragments, if the package uses the library
  - the rules of its tables (in place of the engine's ICE03)
  - the engine's own internal consistency evaluators (ICEs), in an x64 Windows. Those that cannot be run here are named.

The first run downloads 104 MB for the ICEs. The exit status is 0 if there is no error.
HELP
}

help_try() {
  cat <<HELP
usage: ./hx try PACKAGE.msi [NAME=VALUE]...

Installs a package in a fresh Windows of its processor, with these properties, and removes it again. Prints the engine's
results, what the library wrote to the log, and what each run changed: files, registry, services, tasks. The verbose logs
are in build/artifacts/try. Nothing of it reaches this machine or its network.

The exit status is 0 if the package was installed and removed.
HELP
}

# from_caller PATH: prints the path, relative to the folder in which the user called ./hx.
from_caller() {
  if [[ $1 == /* ]]; then printf '%s' "$1"; else printf '%s' "$callerFolder/$1"; fi
}

# need_file COMMAND WHAT WORD: exits if WORD does not name a file.
need_file() {
  [[ -n $3 ]] || wrong "$1 needs the path of $2. ./hx $1 --help says more."
  [[ -f $(from_caller "$3") ]] || wrong "there is no file '$3'. $1 needs the path of $2."
}

# Reads the command line of "package" into packageSource, packageProcessor, packageOut and packageDefines.
read_package_words() {
  packageSource='' packageProcessor='' packageOut='' packageDefines=()
  while [[ $# -gt 0 ]]; do
    case $1 in
      --processor | --define | --out)
        [[ $# -gt 1 ]] || wrong "$1 needs a value. ./hx package --help lists what package takes."
        case $1 in
          --processor) packageProcessor=$2 ;;
          --define) packageDefines+=(--define "$2") ;;
          --out) packageOut=$2 ;;
        esac
        [[ $1 != --define || $2 == [A-Za-z_]*=* ]] || wrong "--define takes NAME=VALUE, not '$2'."
        shift
        ;;
      -*) no_option package "$1" ;;
      *)
        [[ -z $packageSource ]] || no_word package "$1"
        packageSource=$1
        ;;
    esac
    shift
  done
  need_file package "a .wxs" "$packageSource"
  [[ -n $packageProcessor ]] || wrong "package needs --processor arm64 or --processor x64."
  [[ $packageProcessor == arm64 || $packageProcessor == x64 ]] ||
    wrong "--processor takes arm64 or x64, not '$packageProcessor'."
  [[ -n $packageOut ]] || packageOut=$hxRoot/build/packages/own/$(basename "$packageSource" .wxs)-$packageProcessor.msi
  packageOut=$(from_caller "$packageOut")
  [[ ! -d $packageOut ]] || wrong "--out needs the path of a file; '$packageOut' is a folder."
  packageSource=$(from_caller "$packageSource")
}

# read_one_package COMMAND WORD...: sets packageFile to the package, and packageProperties to the other words.
read_one_package() {
  local command=$1 word
  packageFile='' packageProperties=()
  shift
  for word in "$@"; do
    case $word in
      -*) no_option "$command" "$word" ;;
      *)
        if [[ -z $packageFile ]]; then
          packageFile=$word
        elif [[ $command == try && $word == *=* ]]; then
          packageProperties+=("$word")
        elif [[ $command == try ]]; then
          wrong "try takes one package, and then properties as NAME=VALUE, not '$word'."
        else
          no_word "$command" "$word"
        fi
        ;;
    esac
  done
  need_file "$command" "an .msi" "$packageFile"
  packageFile=$(from_caller "$packageFile")
}

package_command() {
  read_package_words "$@"
  need_packages
  with_build_lock build_preset "$packageProcessor" hxsetup
  exec python3 tools/packages/package.py "$packageSource" --processor "$packageProcessor" \
    --library "$PWD/build/$packageProcessor/hxsetup.dll" --out "$packageOut" "${packageDefines[@]}"
}

check_package_command() {
  read_one_package check-package "$@"
  need_packages
  with_build_lock build_preset x64 ices
  exec python3 tools/packages/check_package.py "$packageFile" --host "$PWD/build/x64/ices.exe"
}

try_command() {
  local processor
  read_one_package try "$@"
  need_packages
  processor=$(python3 tools/packages/try_package.py "$packageFile" --processor-only "${packageProperties[@]}") || exit 1
  need_windows "$processor"
  with_build_lock take_build "$processor-tests trial"
  exec python3 tools/packages/try_package.py "$packageFile" --programs "$runFolder/$processor-tests" \
    --logs build/artifacts/try "${packageProperties[@]}"
}
