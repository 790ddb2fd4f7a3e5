#!/usr/bin/env bash
# The scsi_decode example: what it prints for good codes, and how it refuses bad ones.
# usage: scsi_decode_test.sh scsi_decode
set -euo pipefail
decode=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0
fail() { printf 'FAIL: %s\n' "$*"; failures=$((failures + 1)); }

# expect STATUS TEXT ARGUMENT...: standard output and error together, and the exit status.
expect() {
  local wanted_status=$1 wanted=$2 status=0 printed
  shift 2
  printed=$("$decode" "$@" 2>&1 </dev/null) || status=$?
  [ "$printed" = "$wanted" ] || fail "scsi_decode $*: printed '$printed', not '$wanted'"
  [ "$status" = "$wanted_status" ] || fail "scsi_decode $*: exit status $status, not $wanted_status"
}

fixed='current error, fixed format
sense key  5h       ILLEGAL REQUEST (error)
code       24h/00h  INVALID FIELD IN CDB'
expect 0 "$fixed" sense 70 00 05 00 00 00 00 0a 00 00 00 00 24 00 00 00 00 00
expect 0 "$fixed" sense 700005000000000a00000000240000000000
expect 0 "$fixed" sense '70,0,5,0,0,0,0,A' 0x00000000 24h:0h
expect 0 'deferred error, fixed format
sense key  3h       MEDIUM ERROR (error)
code       11h/00h  UNRECOVERED READ ERROR
flag       FILEMARK
flag       EOM: end of medium
flag       ILI: incorrect length
info       0001E240h' sense F100E30001E2400A00000000110000000000
expect 0 'current error, fixed format
sense key  6h       UNIT ATTENTION (error)
code       not given' sense 70 00 06 00 00 00 00 00
expect 0 'current error, fixed format
sense key  6h       UNIT ATTENTION (error)
code       not given' sense 70 00 06 00 00 00 00 00 00 00 00 00 29 00
expect 0 'current error, descriptor format
sense key  Dh       VOLUME OVERFLOW (volume overflow)
code       00h/02h  END-OF-PARTITION/MEDIUM DETECTED
info       00000000000004D2h
descriptor 03h, 2 bytes' sense 720d000200000010 000a800000000000000004d2 03020000
expect 1 'current error, descriptor format
sense key  1h       RECOVERED ERROR (information)
code       0Bh/01h  WARNING - SPECIFIED TEMPERATURE EXCEEDED
scsi_decode: descriptor 00h ends behind the sense data' sense 72010b010000000c 000a80
expect 1 'scsi_decode: 42h does not begin sense data' sense 42
expect 1 'current error, fixed format
scsi_decode: fixed sense data of 2 bytes has no sense key' sense 7000
expect 1 'current error, descriptor format
scsi_decode: descriptor sense data of 3 bytes has no code' sense 720102

expect 0 'code       04h/01h  LOGICAL UNIT IS IN PROCESS OF BECOMING READY
code       FFh/FFh  Unknown ASC/ASCQ' code 04/01 FFh/FFh
expect 2 'scsi_decode: an ASC without its ASCQ' code 04
expect 0 'version    0020h    SAM (no version claimed)
version    20A0h    SPL (no version claimed)' version 20 0x20A0
expect 1 'version    FFFFh    not listed' version ffff
expect 0 'status     02h      CHECK CONDITION
status     01h      Reserved' status 2 01h
expect 0 'opcode     12h      INQUIRY
opcode     A0h      REPORT LUNS' opcode 12 A0

expect 2 "scsi_decode: '1G' is not hexadecimal" opcode 1G
expect 2 "scsi_decode: '0x' is not hexadecimal" opcode 0x
expect 2 "scsi_decode: '12345' is too large" version 12345
expect 2 'scsi_decode: 100h is too large' status 100
expect 2 "scsi_decode: '70000' has half a byte too much" sense 70000
expect 2 'scsi_decode: no numbers to explain' opcode
expect 2 'scsi_decode: no numbers to explain' opcode ' '
expect 2 'scsi_decode: more than 512 numbers' sense "$(printf '00%.0s' {1..513})"

usage=$("$decode" --help)
[[ $usage == 'usage: scsi_decode WHAT'* ]] || fail 'no help'
expect 2 "$usage"
expect 2 "scsi_decode: 'senses' is nothing that can be explained
$usage" senses 70

printed=$(printf '70 00 05 00\n00 00 00 0a\n00 00 00 00 24 00\n' | "$decode" sense)
[ "$printed" = "$fixed" ] || fail "standard input: printed '$printed'"
status=0
"$decode" opcode 12 >/dev/full 2>"$scratch/err" || status=$?
[ "$status" = 1 ] || fail "a full device: exit status $status"
grep -q '^scsi_decode: cannot write: ' "$scratch/err" || fail 'a full device goes unnoticed'
exit $((failures > 0))
