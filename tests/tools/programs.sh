#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# programs.sh BIN EXAMPLE NODES: the tools and the README's example as processes, over a bus on a socket.
set -u
bin=$1
readme=$2
nodes=$3
docs=$(cd -- "$(dirname -- "$0")/../../docs" && pwd)
scratch=$(mktemp -d)
trap 'kill -KILL $(jobs -p) 2>/dev/null; rm -rf -- "$scratch"' EXIT
cd "$scratch" || exit 1
failures=0

# expect WHAT EXPECTED GOT
expect() {
    [ "$2" = "$3" ] && return
    printf 'FAILED: %s\n  expected: %s\n  got:      %s\n' "$1" "$2" "$3"
    failures=$((failures + 1))
}

startBus() {
    "$bin/velkcan-bus" --nodes $((nodes + 10)) bus 2>bus.err &
    busPid=$!
    until "$bin/velkcan-recv" -s 1 -d 2 --timeout 1 unix:bus 2>/dev/null; [ $? -eq 1 ]; do
        kill -0 "$busPid" || exit 1
        sleep 0.01
    done
}

# A sender repeats what it sends before its receiver has started. The timeout turns a message that never
# arrives into a failed line; without it the test would hang.
receive() {
    : >out # now, not when the job starts
    "$bin/velkcan-recv" -s 456 -d 123 --timeout 300000 "$@" unix:bus >out 2>recv.err &
    receiver=$!
}

# eventually COMMAND...: waits until it succeeds or the receiver has ended.
eventually() {
    until "$@" || ! kill -0 "$receiver"; do sleep 0.01; done
}

send() {
    "$bin/velkcan-send" -s 123 -d 456 "$@" unix:bus 2>send.err
}

startBus
head -c 300 /dev/urandom >file
receive -n 2
expect "the status of a hex message" 0 "$(send <<<' de AD
beef'; echo $?)"
expect "the status of a generated message" 0 "$(send -D 9; echo $?)"
wait "$receiver"
expect "messages as hex" "DE AD BE EF/01 02 03 04 05 06 07 08 09/" "$(tr '\n' / <out)"
receive -n 2 --raw --status
send --file file
send --raw <file
wait "$receiver"
expect "messages as they are" "$(cat file file | md5sum)" "$(md5sum <out)"
expect "status changes" "connected" "$(head -n 1 recv.err | cut -d' ' -f2)"
receive --json --status
send -D 2
wait "$receiver"
expect "a message as JSON" '"id":"123","length":2,"data":"0102"}' "$(cut -d, -f2- out)"
expect "a status as JSON" '"status":"connected"}' "$(head -n 1 recv.err | cut -d, -f2)"
mv out lines
printf '\nxy\n{"data":1}\n0A' >>lines
receive -n 2
expect "the status of lines, two of them wrong" 2 "$(send --lines <lines; echo $?)"
wait "$receiver"
expect "lines" "01 02/0A/ 3 4" "$(tr '\n' / <out) $(sed 's/.*line \([0-9]*\):.*/\1/' send.err | xargs)"

# What a live dump records reads back the same. Messages go out until it has seen one.
"$bin/velkcan-dump" -t a --log live.log unix:bus >live 2>live.err &
dumper=$!
receive -l
until grep -q acknowledged live || ! kill -0 "$dumper"; do send -D 20; done
kill -INT "$dumper"
wait "$dumper"
expect "the status of a live dump" "0 0" "$? $(wc -c <live.err)"
"$bin/velkcan-dump" -t a --log again.log live.log >again
expect "a recorded bus" "" "$(cmp live again; cmp live.log again.log)"
"$bin/velkcan-dump" --log live.log - <live.log 2>err
expect "a record over its input" "2 1" "$? $(grep -c -e --log err)"
expect "the input" "" "$(cmp live.log again.log)"
"$bin/velkcan-dump" "exec:cat /etc/passwd" >out 2>err
expect "a dump of what are no records" "3 velkcan-dump: exec:cat /etc/passwd: the bus is lost" "$? $(cat err)"
kill "$receiver"

# The example greets its peer and sends each message back. Its answer can arrive before the sender of the
# message has ended, which then takes the answer too: so a receiver runs all the time.
receive -n 2
"$readme" unix:bus >example.log 2>&1 &
example=$!
eventually test -s out
"$bin/velkcan-send" -s 456 -d 123 -D 3 unix:bus
expect "the status of a message to the example" 0 $?
wait "$receiver"
expect "a conversation" "0A/0B 0C/" "$(printf '0a\n0b0c\n' |
    "$bin/velkcan-send" -s 456 -d 123 --lines --reply=300000 unix:bus | tr '\n' /)"
kill "$example"
expect "the example" "68 65 6C 6C 6F/01 02 03/" "$(tr '\n' / <out)"

# The other one, with an event loop, sends each line.
receive -n 2
printf 'hi\nho\n' | "${readme%/*}/client-example" unix:bus >example.log 2>&1
expect "the status of the example with an event loop" 0 $?
wait "$receiver"
expect "lines of the example with an event loop" "68 69/68 6F/" "$(tr '\n' / <out)"

receive -l
expect "the status of a message to an endless receiver" 0 "$(send -D 2; echo $?)"
eventually grep -qx '01 02' out
expect "no reply" "1 velkcan-send: no reply within 1 ms" "$(send --reply=1 -D 2; echo $?) $(cat send.err)"
"$bin/velkcan-send" -s 123 -d 456 -l 1000000000 -D 2 unix:bus >rates &
sender=$!
eventually sh -c '[ "$(wc -l <out)" -gt 9 ]'
kill -INT "$sender"
wait "$sender"
expect "the end of a series by a signal" "130 1" "$? $(grep -c ' messages in ' rates)"
expect "no peer" 1 "$("$bin/velkcan-send" -v -s 1 -d 2 -D 1 --timeout 50 unix:bus 2>err; echo $?)"
expect "the log" "[INFO] CANTransportThread::threadCode() Start CANTransportThread" "$(head -n 1 err)"
expect "the complaint about no peer" \
    "velkcan-send: given up: no acknowledgement from 002 in time" "$(grep -v INFO err)"
expect "no message" 1 "$("$bin/velkcan-recv" -s 1 -d 2 --timeout 50 unix:bus 2>err; echo $?)"

expect "silence" "velkcan-send: given up: no frame from 002 in 5 attempts; are -s and -d swapped?" \
    "$("$bin/velkcan-send" -s 1 -d 2 -D 1 unix:bus 2>&1)"

# An output that fails shows in the status; only a missing reader needs no words.
"$bin/velkcan-recv" --help >/dev/full 2>err
expect "a full disk" "4 1" "$? $(wc -l <err)"
"$bin/velkcan-recv" -s 2 -d 1 -l unix:bus >&- 2>err &
"$bin/velkcan-send" -s 1 -d 2 -D 1 unix:bus
wait $!
expect "a closed stdout" "4 1" "$? $(wc -l <err)"
mkfifo unread
"$bin/velkcan-recv" -s 2 -d 1 -l unix:bus >unread 2>err &
head -c 0 <unread
wait $!
expect "a stdout without a reader" "4 0" "$? $(wc -l <err)"

mkfifo full
exec 8<>full
"$bin/velkcan-recv" -s 2 -d 1 -l unix:bus >full &
stalled=$!
"$bin/velkcan-send" -s 1 -d 2 -D 4000 -l 20 unix:bus | true # which prints nothing that it needs
expect "a series whose rates nobody reads" "4 0" "${PIPESTATUS[*]}"
kill -TERM "$stalled"
wait "$stalled"
expect "the end of a receiver that cannot print" 143 $?
printf x >mine.lock
expect "a lock file with content" "3 x" "$("$bin/velkcan-bus" mine 2>err; echo $?) $(cat mine.lock)"

# Many nodes at once.
for ((node = 0; node < nodes; node++)); do
    "$bin/velkcan-recv" -s $((100 + node)) -d $((500 + node)) --timeout 300000 unix:bus >"node.$node" &
    pids[node]=$!
done
for ((node = 0; node < nodes; node++)); do
    sendOnce=("$bin/velkcan-send" -s $((500 + node)) -d $((100 + node)) -D 1 unix:bus)
    "${sendOnce[@]}" || "${sendOnce[@]}" # its receiver may start late
done
wait "${pids[@]}"
expect "$nodes nodes" "$nodes 01" "$(sort node.* | uniq -c | xargs)"

kill -KILL "$busPid"
wait "$busPid" 2>/dev/null
wait "$receiver"
expect "the status when the bus is lost" "3 velkcan-recv: unix:bus: the bus is lost" "$? $(cat recv.err)"
expect "no interface" "3 1" "$("$bin/velkcan-proxy" nosuch0 2>err; echo $?) $(grep -c "^velkcan-proxy: nosuch0: " err)"
expect "no bus" 3 "$(send -D 1; echo $?)"

expect "a log in words" "123  [2]  SF len 1   41/123 -> 321  acknowledged, 1 byte  41/321  [1]  FC acknowledge/" \
    "$(printf '(1) can0 123#0141\nnothing\n(2) can0 321#33\n' | "$bin/velkcan-dump" 2>err | sort | tr '\n' /)"
expect "the complaint about skipped lines" \
    "velkcan-dump: standard input: skipped 1 of 3 lines, without a classic CAN data frame" "$(cat err)"

# The first signal ends a dump at any point, and what it knows is printed if someone reads it.
printf 'c 1#0141\n%.0s' {1..9999} >log
mkfifo stalled
exec 7<>stalled
: >out
while read -r what status input output; do
    "$bin/velkcan-dump" log "$input" >"$output" 2>err &
    dumper=$!
    until [ -s out ] || grep -q '^State:.S' "/proc/$dumper/status"; do sleep 0.01; done
    sleep 0.2
    kill -TERM "$dumper"
    wait "$dumper"
    expect "the status of a dump that is ended in $what" "$status" $?
done <<'ROWS'
an-endless-line 0 /dev/zero out
a-wait-for-input 0 stalled out
a-wait-for-its-reader 4 log stalled
ROWS
expect "the message that ends with a signal" "001 -> ???  incomplete, attempt 4, 1 byte  41" "$(tail -n 1 out)"

"$bin/velkcan-dump" --svg ladder.svg "$docs/ladder.log" >out
expect "the picture in docs, which scripts/picture draws" "" "$(cmp ladder.svg "$docs/ladder.svg" 2>&1)"
"$bin/velkcan-dump" --svg /dev/full log >out 2>err
expect "a picture on a full disk" "4 velkcan-dump: cannot write '/dev/full': No space left on device" "$? $(cat err)"

# What cannot be printed shows in the status, unless the reader has seen enough.
for arguments in --help log; do
    "$bin/velkcan-dump" "$arguments" >/dev/full 2>err
    expect "dump $arguments on a full disk" "4 1" "$? $(wc -l <err)"
    "$bin/velkcan-dump" "$arguments" 2>err | head -n 1 >out
    expect "dump $arguments for head" "0 0 1" "${PIPESTATUS[0]} $(wc -c <err) $(wc -l <out)"
done

# Each wrong argument: one line on stderr that names it, nothing on stdout, status 2.
while read -r tool given arguments; do
    # shellcheck disable=SC2086
    "$bin/velkcan-$tool" $arguments >out 2>err </dev/null
    expect "velkcan-$tool $arguments" "2 0 1 1" \
        "$? $(wc -c <out) $(wc -l <err) $(grep -c -e "$given" err)"
done <<'ROWS'
send 800 -s 800 -d 1 -D 1 can0
send 1x -s 1x -d 1 -D 1 can0
send 11.bits -s 18DA10F1 -d 1 -D 1 can0
send 001 -s 0x1 -d 1 -D 1 can0
send --reply -s 1 -d 2 --reply=0 can0
send --lines -s 1 -d 2 --lines -D 1 can0
send 4096 -s 1 -d 2 -D 4096 can0
send BUS -s 1 -d 2 -D 1
send --bad -s 1 -d 2 --bad can0
send nosuchfile -s 1 -d 2 --file nosuchfile can0
send empty -s 1 -d 2 can0
recv -d -s 1 can0
recv 0 -s 1 -d 2 -n 0 can0
recv --raw -s 1 -d 2 --raw --json can0
bus 999 --mode 999 bus
bus 4097 --nodes 4097 bus
bus 1.1 --drop 1.1 bus
bus PATH
proxy IFACE
proxy 0123 --accept 0123 can0
proxy 123: --accept 00000123:7 --accept 123~7 --accept 123: can0
proxy 123~800 --accept 123~800 can0
dump -d -s 1
dump 800 -s 800 -d 1
dump --raw --raw
dump e -t e
dump red --color red
ROWS
expect "a bad token" "velkcan-send: position 4: got 'x', expected two hexadecimal digits for each \
byte, as in 'DE AD BEEF'" "$(echo '00 xy' | send; cat send.err)"

[ "$failures" -eq 0 ] && printf 'all as expected\n'
exit "$failures"
