#!/usr/bin/env bash
# Tests of the zustd program, run as users run it: exact output, exact exit status, exact
# file bytes. Usage: cli_test.sh FAMILY SOURCE_DIR [EMULATOR ...] PROGRAM
set -uo pipefail
family=$1 src=$2
shift 2
Z=("$@")
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cd "$tmp" || exit 1
export TZ=UTC LC_ALL=C
unset SYSTEMHOME
failures=0

fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

# expect NAME STATUS STDOUT STDERR -- ARGS...: runs zustd ARGS (stdin from $IN, default
# /dev/null) and compares the exit status and both outputs byte for byte.
expect() {
  local name=$1 status=$2 out=$3 err=$4
  shift 5
  "${Z[@]}" "$@" <"${IN:-/dev/null}" >"$tmp/.out" 2>"$tmp/.err"
  local got=$?
  [ "$got" = "$status" ] || fail "$name: exit status $got, expected $status"
  printf '%s' "$out" | cmp -s - "$tmp/.out" ||
    fail "$name: stdout $(od -c "$tmp/.out" | head -5), expected $(printf '%s' "$out" | od -c | head -5)"
  printf '%s' "$err" | cmp -s - "$tmp/.err" || fail "$name: stderr \"$(cat "$tmp/.err")\", expected \"$err\""
}

# same_bytes NAME FILE EXPECTED: the file holds exactly these bytes.
same_bytes() {
  printf '%s' "$3" | cmp -s - "$2" || fail "$1: $2 holds $(od -c "$2" | head -8)"
}

# Log time stamps vary: show them as <T>.
mask() { sed -E 's/<[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}>/<T>/; s/"time":"[0-9: -]{19}"/"time":"T"/'; }

test_usage() {
  expect version 0 $'zustd 1.0.0\n' '' -- --version
  expect none 2 '' $'zustd: A subcommand is required (see zustd --help)\n' --
  expect unknown 2 '' $'zustd: unknown subcommand "frobnicate" (see zustd --help)\n' -- frobnicate
  expect unknown-para 2 '' $'zustd: unknown subcommand "fetch" (see zustd --help)\n' -- para fetch
  expect missing-arg 2 '' $'zustd: KEY is required (see zustd --help)\n' -- para get f s
  expect extra-arg 2 '' $'zustd: The following argument was not expected: x (see zustd --help)\n' \
    -- time 0 x
  expect bad-option 2 '' $'zustd: The following argument was not expected: --frob (see zustd --help)\n' \
    -- base64 --frob
  local c
  for c in "para" "para get" "para set" "para del" "para sections" "para keys" "expr" "log" \
    "log show" "log add" "base64" "time"; do
    # shellcheck disable=SC2086
    "${Z[@]}" $c --help >"$tmp/.out" 2>&1 || fail "$c --help: exit status $?"
    grep -q "^Usage: zustd $c " "$tmp/.out" || fail "$c --help: no usage line"
  done
  # Hostile arguments: one line on stderr and a defined status, never a crash or a hang.
  local long nasty=() args
  long=$(head -c 100000 /dev/zero | tr '\0' 'A')
  nasty=("" " " "-" "--" "%s%n%x" $'\xff\xfe' "$long" "[" "=" "/" "." "/dev/full" "$tmp")
  for args in "para get" "para set" "para del" "para keys" "para sections" "expr" \
    "log show" "log add" "base64" "base64 -d" "time"; do
    for a in "${nasty[@]}"; do
      # shellcheck disable=SC2086
      timeout 60 "${Z[@]}" $args "$a" "$a" "$a" "$a" </dev/null >/dev/null 2>"$tmp/.err"
      local s=$?
      [[ $s -le 2 ]] || fail "$args with \"${a:0:20}\": exit status $s"
      [[ $(wc -l <"$tmp/.err") -le 1 ]] || fail "$args with \"${a:0:20}\": $(cat "$tmp/.err")"
    done
  done
  rm -rf -- ./* 2>/dev/null
  # Completion: subcommands, types and the sections of the named file.
  printf '[Net]\nport=1\n[Serial]\n' >c.ini
  (
    set +u  # completion code runs in interactive shells, without -u
    zustd() { "${Z[@]}" "$@"; }
    _init_completion() {
      words=("${COMP_WORDS[@]}") cword=$COMP_CWORD
      cur=${words[cword]} prev=${words[cword - 1]}
    }
    _filedir() { COMPREPLY=(FILE); }
    # shellcheck source=../zustd.bash
    source "$src/zustd.bash"
    complete_words() {
      COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
      _zustd
      echo "${COMPREPLY[*]}"
    }
    [ "$(complete_words zustd p)" = "para" ] || echo "completion: zustd p"
    [ "$(complete_words zustd para g)" = "get" ] || echo "completion: zustd para g"
    [ "$(complete_words zustd para get c.ini '')" = "Net Serial" ] || echo "completion: sections"
    [ "$(complete_words zustd para get c.ini Net port --type r)" = "real" ] || echo "completion: type"
    [ "$(complete_words zustd log show app --j)" = "--json" ] || echo "completion: log show"
  ) >"$tmp/.out"
  [ -s "$tmp/.out" ] && fail "$(cat "$tmp/.out")"
}

test_para() {
  # Typed setters on a missing file: new section after a blank line, new keys first.
  expect set-int 0 '' '' -- para set a.ini Net port 80 --type int
  expect set-real 0 '' '' -- para set a.ini Net gain 2.5 --type real
  expect set-bool 0 '' '' -- para set a.ini Net dhcp yes --type bool
  expect set-string 0 '' '' -- para set a.ini Serial name "dev one = ttyS0"
  same_bytes typed-file a.ini $'\n[Net]\ndhcp=Y\ngain=2.500\nport=80\n\n[Serial]\nname=dev one = ttyS0\n'
  expect get-string 0 $'2.500\n' '' -- para get a.ini net gain
  expect get-real 0 $'2.5\n' '' -- para get a.ini NET gain --type real
  expect get-precision 0 $'2.50\n' '' -- para get a.ini Net gain --type real --precision 2
  expect get-int 0 $'80\n' '' -- para get a.ini Net port --type int
  expect get-bool 0 $'true\n' '' -- para get a.ini Net dhcp --type bool
  expect get-first-eq 0 $'dev one = ttyS0\n' '' -- para get a.ini serial name
  expect get-missing 1 '' '' -- para get a.ini Net mtu
  expect get-default 1 $'1500\n' '' -- para get a.ini Net mtu --type int --default 1500
  expect get-default-bool 1 $'false\n' '' -- para get a.ini Net x --type bool --default off
  expect get-key-case 1 '' '' -- para get a.ini Net PORT
  expect get-no-section 1 '' '' -- para get a.ini Nowhere port

  # The library's reading rules on a hand-written file.
  printf '; comment\n  [Dev]  \n  speed  =  9600 \r\nmode=12abc\nflag=yes\nr=1.23456\n[dev]\nspeed=1\n[Net] old\nip=10.0.0.1\n' >b.ini
  expect trimmed 0 $'9600\n' '' -- para get b.ini dev speed
  expect lenient-int 0 $'12\n' '' -- para get b.ini Dev mode --type int
  expect not-a-bool 1 $'true\n' '' -- para get b.ini Dev flag --type bool --default true
  expect real-text 0 $'1.23456\n' '' -- para get b.ini Dev r --type real
  expect header-with-tail 0 $'10.0.0.1\n' '' -- para get b.ini net ip
  expect sections 0 $'Dev\nNet\n' '' -- para sections b.ini
  expect keys 0 $'speed  =  9600\nmode=12abc\nflag=yes\nr=1.23456\n' '' -- para keys b.ini DEV
  expect keys-missing 1 '' '' -- para keys b.ini Serial
  # An existing key keeps its place; the library drops the blanks after "=".
  expect set-existing 0 '' '' -- para set b.ini Dev speed 19200
  expect set-real-rounds 0 '' '' -- para set b.ini Dev r 1.23456 --type real
  same_bytes set-existing-file b.ini $'; comment\n[Dev]\nspeed  =19200\nmode=12abc\nflag=yes\nr=1.235\n[dev]\nspeed=1\n[Net] old\nip=10.0.0.1\n'

  # Round trips: set then get, per type.
  local v
  for v in "plain" "with spaces" "a=b=c" "; not a comment" "" "-"; do
    expect "round-trip-set [$v]" 0 '' '' -- para set r.ini S k "$v"
    expect "round-trip-get [$v]" 0 "$v"$'\n' '' -- para get r.ini s k
  done
  for v in 0 -5 2147483647 -2147483648; do
    expect "round-trip-int $v" 0 '' '' -- para set r.ini I n "$v" --type int
    expect "round-trip-int-get $v" 0 "$v"$'\n' '' -- para get r.ini I n --type int
  done
  for v in "0.5:0.5" "-1.25:-1.25" "1e3:1000" "0.0004:0" "2.0005:2.001"; do
    expect "round-trip-real ${v%%:*}" 0 '' '' -- para set r.ini R x "${v%%:*}" --type real
    expect "round-trip-real-get ${v%%:*}" 0 "${v#*:}"$'\n' '' -- para get r.ini R x --type real
  done

  # Deletions: a key, a whole section, missing ones (file untouched).
  printf '[A]\nx=1\ny=2\n[B]\nz=3\n' >d.ini
  expect del-key 0 '' '' -- para del d.ini a x
  same_bytes del-key-file d.ini $'[A]\ny=2\n[B]\nz=3\n'
  cp d.ini d.before
  expect del-missing-key 1 '' '' -- para del d.ini A nope
  expect del-missing-section 1 '' '' -- para del d.ini C
  cmp -s d.ini d.before || fail "del of missing items changed the file"
  expect del-section 0 '' '' -- para del d.ini A
  same_bytes del-section-file d.ini $'[B]\nz=3\n'

  # Bad input: exit 2, one line, nothing written.
  expect missing-file 2 '' $'zustd: nofile.ini: No such file or directory\n' -- para get nofile.ini S k
  expect directory 2 '' "zustd: $tmp: Is a directory"$'\n' -- para get "$tmp" S k
  expect del-missing-file 2 '' $'zustd: nofile.ini: No such file or directory\n' -- para del nofile.ini S
  cp a.ini a.before
  expect bad-int 2 '' $'zustd: VALUE: not a value of the type: 12x\n' -- para set a.ini Net port 12x --type int
  expect big-int 2 '' $'zustd: VALUE: not a value of the type: 2147483648\n' -- para set a.ini Net port 2147483648 --type int
  expect bad-real 2 '' $'zustd: VALUE: not a value of the type: 1,5\n' -- para set a.ini Net gain 1,5 --type real
  expect bad-bool 2 '' $'zustd: VALUE: not a value of the type: maybe\n' -- para set a.ini Net dhcp maybe --type bool
  expect bad-default 2 '' $'zustd: --default: not a value of the type: x\n' -- para get a.ini Net p --type real --default x
  expect bad-type 2 '' $'zustd: --type: float not in {string,int,real,bool} (see zustd --help)\n' -- para get a.ini Net port --type float
  expect value-break 2 '' $'zustd: VALUE holds a line break: nothing written\n' -- para set a.ini Net x $'1\n[Evil]'
  expect key-break 2 '' $'zustd: KEY holds a line break: nothing written\n' -- para set a.ini Net $'x\r' 1
  expect key-equals 2 '' $'zustd: KEY holds "=": nothing written\n' -- para set a.ini Net a=b 1
  expect section-break 2 '' $'zustd: SECTION holds a line break: nothing written\n' -- para set a.ini $'N\n' x 1
  cmp -s a.ini a.before || fail "refused values changed the file"
  "${Z[@]}" para set nodir/x.ini S k v 2>"$tmp/.err"
  [ $? = 2 ] && grep -q '^zustd: nodir/x.ini: cannot write' "$tmp/.err" || fail "write into a missing directory"
}

test_expr() {
  local row f want
  # FORMULA|RESULT: the library's arithmetic, printed in the shortest exact form.
  # Comparisons and logic share one precedence, left to right: 1>2 OR 3>2 is ((1>2) OR 3)>2.
  while IFS='|' read -r f want; do
    expect "expr $f" 0 "$want"$'\n' '' -- expr "$f"
  done <<'TABLE'
1+2*3|7
0.1+0.2|0.30000000000000004
7 MOD 2|3
7 % 2|1
(@7) % 2|-1
7 MOD 0|7
1/0|9999999
@1/0|-9999999
0/0|0
LOG(1)|0
LN(100)|2
LOG(0)|-inf
2^3^2|64
SUM(1,2,3)|6
AVE(1,2,3)|2
AVE()|0
MAX(3,9,2)|9
C_PI|3.14159
@3|-3
5=|5
1>2 OR 3>2|0
CABS 3 4|5
1000000*1000000*1000000*1000000|1e+24
TABLE
  expect vars 0 $'1.5\n' '' -- expr "SIN(X)*2+y" x=0 Y=1.5 unused=7
  expect precision 0 $'0.333\n' '' -- expr "1/3" --precision 3
  expect postfix 0 $'X SIN 2 * Y +\n' '' -- expr "SIN(X)*2+Y" --postfix
  expect postfix-assoc 0 $'2 3 ^ 2 ^\n' '' -- expr "2^3^2" --postfix
  expect postfix-logic 0 $'A 1 > B AND 2 <\n' '' -- expr "A>1 AND B<2" --postfix
  expect postfix-list 0 $'A1 A2 A3 SUM(3) 2 *\n' '' -- expr "SUM[3]*2" --postfix
  expect list-vars 0 $'1 X\n2 Y\n' '' -- expr "X*Y+X" --vars
  expect long-names 0 $'1 PRESSUR\n' '' -- expr "pressure1+PRESSURE2" --vars
  # Failures, explained.
  expect negative-sqrt 1 '' $'zustd: SQRT, LOG or LN of a negative value\n' -- expr "SQRT(@1)"
  expect minus-first 1 '' $'zustd: operands and operators do not match (a negative number is written @3, and 2*(@3)), or ASIN/ACOS outside [-1, 1]\n' -- expr "-3"
  expect asin 1 '' $'zustd: operands and operators do not match (a negative number is written @3, and 2*(@3)), or ASIN/ACOS outside [-1, 1]\n' -- expr "ASIN(2)"
  expect empty 1 '' $'zustd: empty formula\n' -- expr "  "
  expect syntax 2 '' $'zustd: syntax error, or more than 65 variables\n' -- expr "(1"
  expect left-over 2 '' $'zustd: cannot read the formula at character 4: "=3"\n' -- expr "1+2=3"
  expect bad-value 2 '' $'zustd: not a number: 1O (for X)\n' -- expr "X+1" X=1O
  expect bad-pair 2 '' $'zustd: not NAME=VALUE: X\n' -- expr "X+1" X
  # CSV: rows with a result column; bad rows get an empty result and a message.
  printf 'time,u,i\n0,3,4\n1,6,8\r\n2,x,1\n\n3,0,0\n' >d.csv
  expect csv 2 $'time,u,i,result\n0,3,4,0.8\n1,6,8,0.8\n2,x,1,\n3,0,0,0\n' \
    $'zustd: line 4: not a number: "x"\n' -- expr "COSPHI U I" --csv d.csv
  printf 'a,b\n1,0\n-1,0\n' >n.csv
  IN=n.csv expect csv-stdin 1 $'a,b,result\n1,0,1\n-1,0,\n' \
    $'zustd: line 3: SQRT, LOG or LN of a negative value\n' -- expr "SQRT(A)+B" --csv -
  expect csv-column 2 '' $'zustd: the CSV header has no column C\n' -- expr "A+C" --csv n.csv
  expect csv-missing 2 '' $'zustd: none.csv: No such file or directory\n' -- expr "A" --csv none.csv
  # Bulk: 5000 rows (the result of each row is checked against awk).
  awk 'BEGIN { print "x,y"; for (i = 0; i < 5000; i++) print i "," i * 0.5 }' >big.csv
  "${Z[@]}" expr "X*2+Y" --csv big.csv >big.out || fail "bulk csv: exit status $?"
  awk -F, 'NR > 1 && $3 != $1 * 2 + $2 { bad++ } END { exit bad || NR != 5001 }' big.out ||
    fail "bulk csv: wrong rows"
}

test_log() {
  expect no-home 2 '' $'zustd: SYSTEMHOME is not set: give the log directory with --dir\n' -- log show app
  expect no-home-add 2 '' $'zustd: no log directory: SYSTEMHOME is not set or $SYSTEMHOME/inf cannot be created\n' -- log add app x
  export SYSTEMHOME=$tmp/home
  expect missing-log 2 '' "zustd: $tmp/home/inf/app.inf: No such file or directory"$'\n' -- log show app
  expect bad-name 2 '' $'zustd: not a log name: "../app"\n' -- log add ../app x
  # Logs made by CKALog: exact header bytes, entries shown as they stand.
  expect add-1 0 '' '' -- log add app "started"
  expect add-2 0 '' '' -- log add app $'two\nlines'
  expect add-3 0 '' '' -- log add app 'quote " back\slash'
  head -c 6 home/inf/app.inf | cmp -s - <(printf '0003\n\0') || fail "log header bytes"
  "${Z[@]}" log show app >show.out || fail "log show: exit status $?"
  mask <show.out | cmp -s - <(printf '001 <T> started\n002 <T> two\nlines\n003 <T> quote " back\\slash\n') ||
    fail "log show: $(cat show.out)"
  grep -Eq '^001 <[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}> started$' show.out ||
    fail "log show: stamp form"
  "${Z[@]}" log show app --json | mask >json.out
  printf '%s\n' '{"file":"app.inf","number":1,"time":"T","text":"started"}' \
    '{"file":"app.inf","number":2,"time":"T","text":"two\nlines"}' \
    '{"file":"app.inf","number":3,"time":"T","text":"quote \" back\\slash"}' | cmp -s - json.out ||
    fail "log show --json: $(cat json.out)"
  "${Z[@]}" log show app --grep two | mask | cmp -s - <(printf '002 <T> two\nlines\n') || fail "--grep"
  expect since-future 0 '' '' -- log show app --since "2999-01-01 00:00:00"
  "${Z[@]}" log show app --since "2000-01-01 00:00:00" | cmp -s - show.out || fail "--since past"
  expect since-bad 2 '' $'zustd: --since: not of the form "YYYY-MM-DD hh:mm:ss": yesterday\n' -- log show app --since yesterday
  unset SYSTEMHOME
  "${Z[@]}" log show app --dir "$tmp/home/inf" | cmp -s - show.out || fail "--dir"
  export SYSTEMHOME=$tmp/home

  # Rotation by CKALog: entry 20000 ends the file, which becomes the backup, and begins the next.
  printf '19999\n19999 <2026-01-02 03:04:05> last but one\n' >home/inf/dev.inf
  expect rotate 0 '' '' -- log add dev "twenty thousand"
  "${Z[@]}" log show dev | mask >rot.out
  printf '19999 <T> last but one\n20000 <T> twenty thousand\n001 <T> twenty thousand\n' |
    cmp -s - rot.out || fail "rotation: $(cat rot.out)"
  "${Z[@]}" log show dev --json | head -1 | cmp -s - \
    <(echo '{"file":"dev.bak","number":19999,"time":"2026-01-02 03:04:05","text":"last but one"}') ||
    fail "backup entries in json"

  # --follow across a rotation, bounded in time.
  printf '19998\n19998 <2026-01-02 03:04:05> old\n' >home/inf/run.inf
  "${Z[@]}" log show run --follow >follow.out 2>follow.err &
  local follower=$! deadline=$((SECONDS + 60))
  wait_lines() {
    while (($(wc -l <follow.out) < $1 && SECONDS < deadline)); do sleep 0.1; done
  }
  wait_lines 1
  "${Z[@]}" log add run "one"
  "${Z[@]}" log add run "two"
  wait_lines 3
  "${Z[@]}" log add run "three"
  "${Z[@]}" log add run $'four\nfive'
  wait_lines 7
  kill "$follower"
  wait "$follower" 2>/dev/null
  ((SECONDS < deadline)) || fail "follow: no output within 60 s"
  mask <follow.out | cmp -s - <(printf '%s\n' '19998 <T> old' '19999 <T> one' \
    '20000 <T> two' '001 <T> two' '002 <T> three' '003 <T> four' 'five') ||
    fail "follow: $(cat follow.out) $(cat follow.err)"
}

test_base64() {
  head -c 70000 /dev/urandom >r.bin
  local n
  for n in 0 1 2 3 4 5 57 58 59 60 49151 49152 49153 70000; do
    head -c "$n" r.bin >p.bin
    "${Z[@]}" base64 p.bin >enc.out || fail "encode $n: exit status $?"
    base64 -w0 p.bin | cmp -s - enc.out || fail "encode $n differs from coreutils"
    base64 p.bin | "${Z[@]}" base64 -d | cmp -s - p.bin || fail "decode of wrapped coreutils text ($n)"
    "${Z[@]}" base64 -d enc.out | cmp -s - p.bin || fail "round trip $n"
  done
  IN=p.bin expect stdin 0 "$(base64 -w0 p.bin)" '' -- base64
  IN=p.bin expect stdin-dash 0 "$(base64 -w0 p.bin)" '' -- base64 -
  expect rfc 0 'TWFu' '' -- base64 <(printf Man)
  printf 'TWE=TQ==' >cat.b64
  expect concatenated 0 'MaM' '' -- base64 -d cat.b64
  local bad
  for bad in 'TWE' 'TW E=' 'T===' 'TQ=a' '!!!!' 'TWFu\r\n'; do
    printf "$bad" >bad.b64
    expect "invalid [$bad]" 2 '' $'zustd: invalid base64 input\n' -- base64 -d bad.b64
    base64 -d bad.b64 >/dev/null 2>&1 && fail "coreutils accepts [$bad]"
  done
  expect missing 2 '' $'zustd: nofile: No such file or directory\n' -- base64 nofile
  expect directory 2 '' "zustd: $tmp: Is a directory"$'\n' -- base64 "$tmp"
}

test_time() {
  local fields=$'year 1970\nmonth 1\nday 1\nhour 0\nminute 0\nsecond 0\nweekday 4\nyearday 0\n'
  expect epoch 0 $'instant 0\nlocal 1970-01-01 00:00:00\n'"$fields" '' -- time 0
  expect text 0 $'instant 1700000000\nlocal 2023-11-14 22:13:20\nyear 2023\nmonth 11\nday 14\nhour 22\nminute 13\nsecond 20\nweekday 2\nyearday 317\n' '' -- time "2023-11-14 22:13:20"
  expect carry 0 $'instant 1672534800\nlocal 2023-01-01 01:00:00\nyear 2023\nmonth 1\nday 1\nhour 1\nminute 0\nsecond 0\nweekday 0\nyearday 0\n' '' -- time "2023-01-01 00:60:00"
  TZ=EST5 expect zone 0 $'instant 0\nlocal 1969-12-31 19:00:00\nyear 1969\nmonth 12\nday 31\nhour 19\nminute 0\nsecond 0\nweekday 3\nyearday 364\n' '' -- time 0
  local err='zustd: not a time (seconds since 1970, or "YYYY-MM-DD hh:mm:ss" from 1970 on, within this system'"'"'s time range): '
  local bad
  for bad in "2023-01-01" "yesterday" "-5" "1e9" "2023-01-01 00:00:00x" "99999999999999999999"; do
    expect "bad [$bad]" 2 '' "$err$bad"$'\n' -- time "$bad"
  done
  "${Z[@]}" time >now.out || fail "now: exit status $?"
  [ "$(sed -n 1p now.out)" = "instant $(date +%s)" ] || [ "$(sed -n 1p now.out)" = "instant $(($(date +%s) - 1))" ] ||
    fail "now: $(head -1 now.out)"
}

"test_$family"
if ((failures)); then
  echo "$family: $failures failures" >&2
  exit 1
fi
echo "$family: all passed"
