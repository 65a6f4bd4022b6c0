# shellcheck shell=bash
# The command ./hx lives. Sourced by ./hx, not run.
#
# shellcheck disable=SC2154  # set by ./hx

help_lives() {
  cat <<HELP
usage: ./hx lives [ORDERS] [KILLS] [SEED]

Takes random steps in the lives of three products in one Windows (x64): install, repair, upgrade, upgrades that fail or are
cancelled, removal. Compares the whole machine after each step with what must be there. Then kills the engine in upgrades of a
server, and tries each upgrade again: the server's data must be whole. Prints the seed, every difference and where its logs
are, and totals. ./hx test does not run this.

  ORDERS   how many orders of 4 to 8 steps (50), or the first and the last of them: 17-17
  KILLS    how many kills (20), or the first and the last of them
  SEED     a number that decides all of it; without one it is a new one each time

Everything is in build/artifacts/lives. The exit status is 0 if nothing differs.
HELP
}

# is_count WORD: true if it is a number, or two with "-" between them.
is_count() { [[ $1 =~ ^[0-9]{1,6}(-[0-9]{1,6})?$ ]]; }

# Reads the command line of "lives" into livesWords.
read_lives_words() {
  local word
  livesWords=()
  for word in "$@"; do
    [[ $word != -* ]] || no_option lives "$word"
    case ${#livesWords[@]} in
      0) is_count "$word" || wrong "lives takes the number of orders first, such as 50 or 17-17, not '$word'." ;;
      1) is_count "$word" || wrong "lives takes the number of kills after that of the orders, such as 20 or 3-3, not '$word'." ;;
      2) [[ $word =~ ^[0-9]{1,9}$ ]] || wrong "the seed of lives is a number of at most nine digits, not '$word'." ;;
      *) no_word lives "$word" ;;
    esac
    livesWords+=("$word")
  done
}

lives_command() {
  read_lives_words "$@"
  need_packages
  need_windows x64
  with_build_lock take_build "x64 hxsetup agent ostrack" "x64-tests lives"
  exec python3 tools/lives/lives.py --builds "$runFolder" --logs build/artifacts/lives \
    "${livesWords[0]-50}" "${livesWords[1]-20}" "${livesWords[@]:2}"
}
