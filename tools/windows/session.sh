#!/bin/bash
# Runs one Windows, from its start to its end: tools/windows/session.sh PROCESSOR TREE PRISTINE (--make | --serve)
#
# --make   fills the folder PRISTINE with a new prefix.
# --serve  runs the commands that arrive on standard input, one per line, quoted as by printf %q, and writes the exit
#          status of each on a line to descriptor 3. Ends at the end of its input. Works on a copy of PRISTINE, which
#          is not changed.
#
# The session has its own namespaces (users, mounts, processes, network, host name), and this script is their first
# process. When it ends, or its parent dies in any way, the kernel ends every process in them and removes the mounts,
# the registrations and the copy, which is in memory. Nothing in the session can reach the network.
#
# Environment:
#   HX_PROJECT      the folder that is Z:\hx (read-only)
#   HX_RUN_FOLDER   the folder that is Z:\run
#   HX_TIME_LIMIT   the seconds after which a command is ended; its status is then 124. A command that sets this variable
#                   has its own limit
#   HX_WINEDEBUG    what Wine reports (WINEDEBUG)
#   HX_LANE         a number, different for sessions that run at the same time: chooses the processor of this machine
#                   that an emulated session uses
set -euo pipefail

processor=$1 tree=$2 pristine=$3 mode=$4

if [[ ${HX_SESSION-} != inside ]]; then
  HX_SESSION=inside exec setpriv --pdeathsig KILL \
    unshare --user --map-root-user --mount --pid --fork --mount-proc --kill-child=KILL --net --uts --ipc \
    "$BASH" "$0" "$@"
fi

die() {
  printf '%s\n' "hx: $*" >&2
  exit 1
}

# The first process of a namespace ignores signals that it does not handle. Without this trap only the end of the input or
# the death of the parent would end it.
trap 'exit 130' INT TERM HUP

python3 - <<'PYTHON'
import fcntl, socket, struct
SIOCSIFFLAGS, IFF_UP = 0x8914, 1
socket.sethostname("hxsetup")
with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
    fcntl.ioctl(s, SIOCSIFFLAGS, struct.pack("16sh14x", b"lo", IFF_UP))
PYTHON

if [[ $processor == arm64 ]]; then
  # Emulated threads on several processors sometimes crash a process of Wine or make one hang (seen with QEMU 7.2 and 10.0,
  # never on one processor). So the session uses one processor.
  python3 - "$$" "${HX_LANE:-$(cut -d ' ' -f 39 /proc/$$/stat)}" <<'PYTHON'
import os, sys
process, lane = map(int, sys.argv[1:])
processors = sorted(os.sched_getaffinity(process))
os.sched_setaffinity(process, {processors[lane % len(processors)]})
PYTHON
  # Registers the emulator for this namespace. On older kernels, which cannot do that, it is registered for the machine.
  if mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc 2>/dev/null; then
    header='\x7fELF\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00'
    mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
    printf '%s' ":hx-arm64:M::$header:$mask:/usr/bin/qemu-aarch64-static:F" >/proc/sys/fs/binfmt_misc/register
  fi
fi

# Everything that changes is in memory and visible only in these namespaces; the mount point is a folder of the tree.
session=$tree/windows
mount -t tmpfs -o mode=755 tmpfs "$session"
mkdir -m 1777 "$session/tmp"
state=$pristine

# The folders of this machine that the session sees.
outside=()
[[ -z ${HX_PROJECT-} ]] || outside+=(--ro-bind "$HX_PROJECT" /hx)
[[ -z ${HX_RUN_FOLDER-} ]] || outside+=(--bind "$HX_RUN_FOLDER" /run)

# limit SECONDS: sets "limited", the words before a command that may take so long; "" is without a limit.
limit() {
  limited=()
  [[ -z $1 ]] || limited=(timeout --foreground --kill-after=5 "$1")
}
limit "${HX_TIME_LIMIT-}"

inside() {
  "${limited[@]}" bwrap --die-with-parent --ro-bind "$tree" / --proc /proc --dev /dev --ro-bind /sys /sys \
    --bind "$session/tmp" /tmp --bind "$state" /windows "${outside[@]}" --chdir / --clearenv \
    --setenv PATH /usr/lib/wine:/usr/bin --setenv LC_ALL C.UTF-8 --setenv QEMU_CPU cortex-a72 \
    --setenv HOME /windows/home --setenv XDG_CACHE_HOME /windows/home/.cache \
    --setenv WINEPREFIX /windows/prefix --setenv WINEDEBUG "${HX_WINEDEBUG:--all}" \
    "$@" </dev/null 3>&-
}

if [[ $mode == --make ]]; then
  inside wine64 wineboot -i
  # No display: windows exist and receive messages, but are not shown.
  inside wine64 reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f
  # A program that crashes ends at once; the debugger would keep it running.
  inside wine64 reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' /v Debugger /d false /f
  # Waits until the server has written everything to disk.
  inside wineserver -w
  exit
fi

# start ATTEMPT: starts the server, which runs during the whole session, so that programs start in a fraction of a second.
start() {
  state=$session/state$1
  cp -a "$pristine" "$state" || die "there is no room for a copy of Windows"
  inside wineserver -p || return
  # The emulator sometimes loses a process of the system while it starts. Then there are no services, and each program that
  # needs one fails. This command lists them; the first program of a Windows also starts the processes of the system, whose
  # error output is then that of this command.
  [[ $processor != arm64 ]] || inside wine64 net start >/dev/null
}

limit 120
for attempt in 1 2 3; do
  if start "$attempt"; then break; fi
  [[ $attempt -lt 3 ]] || die "Wine for $processor, or its services, did not start three times"
  printf '%s\n' "hx: Wine for $processor, or its services, did not start; starting again" >&2
  inside wineserver -k || true
done
while read -r line; do
  eval "command=($line)"
  variables=()
  limit "${HX_TIME_LIMIT-}"
  while [[ ${command[0]} == *=* ]]; do
    [[ ${command[0]} != HX_TIME_LIMIT=* ]] || limit "${command[0]#*=}"
    variables+=(--setenv "${command[0]%%=*}" "${command[0]#*=}")
    command=("${command[@]:1}")
  done
  status=0
  inside "${variables[@]}" "${command[@]}" || status=$?
  echo "$status" >&3
done
