#!/usr/bin/env bash
# Writes the seed corpora under fuzz/corpus/<target>/: the sample dumps of
# examples/ and a few small dumps written here byte by byte for the
# decoders, the databases that ravelog (of the fuzz build) makes of those
# dumps for db_reader and check, and small GFiles for gfile.
#   fuzz/make_corpus.sh    (after cmake --build --preset fuzz --target ravelog)
set -euo pipefail
cd "$(dirname "$0")/.."
ravelog=build/fuzz/src/ravelog/ravelog
[ -x "$ravelog" ] || { echo "build ravelog with the fuzz preset first" >&2; exit 1; }
out=fuzz/corpus
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# hex "00 01 ..." > file: the bytes written in hex, spaces ignored.
hex() { local h; h=$(tr -d ' \n' <<<"$*"); printf "$(sed 's/\(..\)/\\x\1/g' <<<"$h")"; }
# name34 TEXT: a thread name field, zero-padded to 34 bytes.
name34() { printf '%s' "$1"; head -c $((34 - ${#1})) /dev/zero; }

rm -rf "$out"/{v2_decoder,v1_decoder,db_reader,check,gfile}
mkdir -p "$out"/{v2_decoder,v1_decoder,db_reader,check,gfile}

# ---- Version 2: header, threads (name, valid, next, id, priority), slots.
{ # big-endian, two threads (the second not valid), four slots from slot 1,
  # slot 3 empty, a context switch, a service call and a status change.
  hex 00 02  00 02  00000080  00000004  00100000  00100020  000003E8
  name34 main; hex 01 01 00001234 0000000A
  name34 idle; hex 00 00 00005678 0000001F
  hex 0003 0016 00000000 00000040  00001234 0000000A 00000000 00000000 00000000
  hex 0001 0000 00000000 00000010  00001234 0000000A 00000000 00000000 00000000
  hex 0005 000A 00000000 00000020  00001234 0000000A 00000000 00000000 00000000
  hex 0000 0000 00000000 00000000  00000000 00000000 00000000 00000000 00000000
} >"$work/v2_small_big.core"
{ # little-endian, one thread, two slots, the second time falling.
  hex 02 00  01 00  40000000  02000000  00000200  00000200  E8030000
  name34 worker; hex 01 00 78560000 05000000
  hex 0100 0000 00000000 64000000  78560000 05000000 00000000 00000000 00000000
  hex 0300 1700 00000000 32000000  78560000 00000000 00000000 00000000 00000000
} >"$work/v2_small_little.core"
{ # big-endian, no threads, two empty slots: a database with no events.
  hex 00 02  00 00  00000040  00000002  00100000  00100000  000003E8
  head -c 64 /dev/zero
} >"$work/v2_empty.core"

{ # big-endian, two threads, 128 slots from slot 5: switches, service
  # calls, status changes and interrupts, two blocks of the database.
  hex 00 02  00 02  00001000  00000080  20000000  200000A0  000F4240
  name34 alpha; hex 01 01 0000A001 00000005
  name34 beta; hex 01 00 0000B002 00000007
  for slot in $(seq 0 127); do
    order=$(((slot + 123) % 128))
    id=$([ $((order % 6)) -lt 3 ] && echo 0000A001 || echo 0000B002)
    case $((order % 4)) in
      0) type=0001; sub=0000 ;;
      1) type=0003; sub=00$(printf '%02X' $((order % 46))) ;;
      2) type=0005; sub=000$((order % 3 * 3 % 10)) ;;
      3) type=0002; sub=0001 ;;
    esac
    hex "$type" "$sub" 00000000 "$(printf '%08X' $((100 + 7 * order)))" "$id" 00000009 00 00 00 00 00 00 00 00 00 00 00 00
  done
} >"$work/v2_two_blocks.core"

# ---- Version 1: header (thread count, pool size, four stored words,
# frequency), threads, a pool of records: length byte, type, subtype, time
# high and low, payload.  The oldest record is the third one.
{ # big-endian, one thread, four records and filler.
  hex 00 01  00 01  0000003C  00000000 00000000 00000000 00000000  000003E8
  name34 main; hex 01 00 00001234 0000000A
  hex 10 0001 0000 00000000 0000001E 00001234
  hex 0C 0003 0016 00000000 00000028
  hex 10 0001 0000 00000000 0000000A 00001234
  hex 0C 0004 0001 00000000 00000014
  hex 00 00 00
} >"$work/v1_small_big.core"
{ # little-endian, no threads, a status change, a record without
  # payload, filler.
  hex 01 00  00 00  24000000  00000000 00000000 00000000 00000000  E8030000
  hex 13 0500 0A00 00000000 0A000000 78560000 05000000 00
  hex 0C 0700 0000 00000000 0B000000
  hex 00 00 00
} >"$work/v1_small_little.core"

cp examples/sample_v2_big.core examples/sample_v2_little.core "$work"/v2_*.core "$out/v2_decoder/"
cp examples/sample_v1_big.core examples/sample_v1_little.core "$work"/v1_*.core "$out/v1_decoder/"

# ---- Databases: U4 length of .kqv, U4 length of .kqs, .kqv, .kqs, .kqi.
u4() { printf "$(printf '\\x%02x\\x%02x\\x%02x\\x%02x' $(($1 >> 24 & 255)) $(($1 >> 16 & 255)) $(($1 >> 8 & 255)) $(($1 & 255)))"; }
for core in examples/sample_v1_little.core "$work"/*.core; do
  name=$(basename "$core" .core)
  "$ravelog" "$core" "$work/$name" >/dev/null 2>&1 || continue
  {
    u4 "$(stat -c %s "$work/$name.kqv")"
    u4 "$(stat -c %s "$work/$name.kqs")"
    cat "$work/$name.kqv" "$work/$name.kqs" "$work/$name.kqi"
  } >"$work/$name.db"
  cp "$work/$name.db" "$out/db_reader/"
  cp "$work/$name.db" "$out/check/"
done

# ---- GFiles: flags, operation count, operations, then the file.
header() { hex 7F 544F56 00000001 "$1" "$2" "$3" 00 "$4" 00; }
{ # fixed width, 32bit, no hd storage: numbers, a string, an address pair,
  # a pad and an array of two words.
  hex 00 0C  00 01 02 03 04 05 0C 13 15 04 16 02
  header 00000004 00000000 04 00
  hex 9A 1234 12345678 0102030405060708 0000012C FFFFFFFF 00000004 61626300
  hex 00001000 00002000 AB 00000001 00000002
} >"$out/gfile/fixed_32bit"
{ # packed, 64bit, hd storage, mapped: LEB128 numbers, _2 and _3 forms, a
  # string, an address pair as a difference, a pad, a mapped array.
  hex 40 10  04 05 06 07 08 09 0A 0B 0C 14 15 04 1B 00 00 00 02
  header 00000005 00000001 08 01
  hex AC02 7F 00 00 05 7F 05 01 01 0A 7F 01 04 61626300
  hex 00000001FFFFFFFF 01 01 AB AA 00000001 00000002
} >"$out/gfile/packed_64bit_hd"
{ # packed, 16bit-16seg, base 5: addresses by mode, a pad, skips.
  hex 80 0C  10 11 12 15 08 19 00 00 00 02 1D 1F
  header 00000004 00000001 42 00
  hex 03 1234 03 04 5678 0010 05 AC AB 00 00 00 00
} >"$out/gfile/packed_16seg_base5"

du -sh "$out"/*
