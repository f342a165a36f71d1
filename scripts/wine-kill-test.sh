#!/usr/bin/env bash
# A Windows process that the host kills with SIGKILL while it owns a FIFO's lock: the next process gets the lock at
# once. Only the host can do that to a process under Wine; the other ways to die are in the test program itself.
#   scripts/wine-kill-test.sh path/to/ProcessesTest.exe [rounds, default 3]
set -eu
program=$1
rounds=${2:-3}
wine=$(dirname "$0")/wine.sh
folder=$(mktemp -d)
survivor= holder=
trap 'kill -KILL $survivor $holder 2>/dev/null || true; rm -rf "$folder"' EXIT
mkfifo "$folder/survivor.in" "$folder/holder.in"

# wait_for FILE TEXT: until the peer has written the line.
wait_for()
{
    for _ in $(seq 600); do
        if grep -q "$2" "$1" 2>/dev/null; then
            return 0
        fi
        sleep 0.1
    done
    echo "no '$2' in time" >&2
    return 1
}

for round in $(seq "$rounds"); do
    name=KyWineKill$$x$round
    "$wine" "$program" --peer survive "$name" <"$folder/survivor.in" >"$folder/survivor.out" 2>/dev/null &
    survivor=$!
    exec 8>"$folder/survivor.in"
    wait_for "$folder/survivor.out" ready
    "$wine" "$program" --peer hold "$name" <"$folder/holder.in" >"$folder/holder.out" 2>/dev/null &
    holder=$!
    exec 9>"$folder/holder.in"
    wait_for "$folder/holder.out" held
    kill -KILL "$holder"
    wait "$holder" 2>/dev/null || true
    holder=
    echo go >&8
    wait_for "$folder/survivor.out" alive
    exec 8>&- 9>&-
    wait "$survivor"
    survivor=
done
echo "$rounds rounds: the survivor owned the lock at once"
