# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Stages, one after the other or side by side, with a table of their times: sourced by .ci/run and scripts/check.

stage_rows=()
stages_begun=$SECONDS

# stage LIMIT COMMAND...: ends the run when it fails or takes longer than LIMIT (as for timeout).
stage() {
  local limit=$1 begin=$SECONDS status=0
  shift
  echo "== $*"
  # In the foreground, so that Ctrl-C reaches the command.
  timeout --foreground --kill-after=30 "$limit" "$@" || status=$?
  stage_rows+=("$((SECONDS - begin)) s | $*$([ $status -eq 0 ] || echo ": failed")")
  [ $status -ne 124 ] || echo "error: $* did not end within $limit" >&2
  [ $status -eq 0 ] || {
    stage_table
    exit $status
  }
}

# Put before a command of side_by_side, it runs in the processor time that the others leave: it does not delay tests that
# measure or wait. (SCHED_IDLE of Linux; needs no privilege.)
spare_time="chrt --idle 0"

# side_by_side LIMIT COMMANDS...: each is one argument, for the shell. The output of the first is shown at once, that of
# the others when all have ended. All run to their end, also when one fails; then the run ends. Ctrl-C ends them.
side_by_side() {
  local limit=$1 begin=$SECONDS logs index status failed=0 pids=()
  shift
  local commands=("$@")
  logs=$(mktemp -d)
  echo "== $1"
  for index in "${!commands[@]}"; do
    (
      status=0
      [ "$index" -eq 0 ] || exec >"$logs/$index.log" 2>&1
      # In a group of its own, so that the time limit reaches the children of the command, too.
      timeout --kill-after=30 "$limit" bash -c "${commands[index]}" </dev/null &
      # shellcheck disable=SC2064
      trap "kill $! 2>/dev/null" TERM
      wait $! || status=$?
      echo "$SECONDS" >"$logs/$index.end"
      exit $status
    ) &
    pids+=($!)
  done
  trap 'kill "${pids[@]}" 2>/dev/null; wait; rm -rf "$logs"; exit 130' INT TERM
  for index in "${!commands[@]}"; do
    status=0
    wait "${pids[index]}" || status=$?
    [ "$index" -eq 0 ] || { echo "== ${commands[index]}" && cat "$logs/$index.log"; }
    [ $status -ne 124 ] || echo "error: ${commands[index]} did not end within $limit" >&2
    [ $status -eq 0 ] || failed=$status
    stage_rows+=("$(($(cat "$logs/$index.end") - begin)) s | ${commands[index]}$([ $status -eq 0 ] || echo ": failed")")
  done
  trap - INT TERM
  rm -rf "$logs"
  if [ ${#commands[@]} -gt 1 ]; then stage_rows+=("$((SECONDS - begin)) s | these ${#commands[@]}, side by side"); fi
  [ $failed -eq 0 ] || {
    stage_table
    exit "$failed"
  }
}

# stage_table: how long each took.
stage_table() {
  echo
  printf '%8s | %s\n' time stage
  local row
  for row in "${stage_rows[@]}"; do printf '%8s | %s\n' "${row%% | *}" "${row#* | }"; done
  printf '%8s | %s\n' "$((SECONDS - stages_begun)) s" "all"
}
