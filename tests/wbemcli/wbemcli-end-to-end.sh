#!/usr/bin/env bash
# Drives `diagctl serve` with wbemcli: ecn, gc, ein, ei, gi, ain, ai, rin, ri, cm RunDiagnostic
# of every shipped service on every element it is available to; the records then appear in ei.
# Every answer is compared with diagctl's own on the same classes. Usage: $0 PATH_TO_DIAGCTL
set -u
diagctl="$1"
command -v wbemcli >/dev/null || { echo "wbemcli is not installed"; exit 77; }
work="$(mktemp -d)"
server_pid=""
cleanup() {
  [ -n "$server_pid" ] && kill -TERM "$server_pid" 2>/dev/null && wait "$server_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

"$diagctl" serve --listen 127.0.0.1:0 --access-log "$work/access.log" 2>"$work/serve.err" &
server_pid=$!
for _ in $(seq 50); do
  grep -q "serving CIM-XML on" "$work/serve.err" 2>/dev/null && break
  sleep 0.1
done
port="$(sed -n 's|.*http://127.0.0.1:\([0-9]*\)/cimom|\1|p' "$work/serve.err" | head -1)"
[ -n "$port" ] || { cat "$work/serve.err"; echo "FAIL: the server did not start"; exit 1; }
url="http://127.0.0.1:$port/root/cimv2"

# A path's keys as one sorted line, whatever order and host each tool writes them in.
normal() {
  python3 -c '
import re, sys
key = re.compile(r"(\w+)=(\"(?:[^\"\\\\]|\\\\.)*\"|[^,\" ]*)")
for line in sys.stdin:
    path = line.strip().split(" ")[0]
    head, _, rest = path.partition("=")
    if not rest:
        continue
    cls = re.split(r"[:/]", head.rsplit(".", 1)[0])[-1]
    keys = sorted(key.findall(head.rsplit(".", 1)[1] + "=" + rest))
    print(cls + "." + ",".join(k + "=" + re.sub(r"^(//)?[^/]*/root/cimv2:", "", v) for k, v in keys))
' | sort
}

# Class names: wbemcli's deep enumeration agrees with diagctl's class list.
wbemcli ecn "$url" | sed 's|.*:||' | sort >"$work/ecn"
"$diagctl" classes | sort >"$work/classes"
diff -q "$work/ecn" "$work/classes" >/dev/null || fail "ecn and diagctl classes differ"
wbemcli gc "$url:ZORQ_FSDiagService" | grep -q "ZORQ_FSDiagService " || fail "gc"

for cls in ZORQ_ComputerSystem ZORQ_LocalFileSystem ZORQ_NetworkPort ZORQ_FSDiagService \
           ZORQ_NetDiagService ZORQ_FSAvailableDiagService ZORQ_NetAvailableDiagService; do
  wbemcli ein "$url:$cls" >"$work/ein.raw"
  "$diagctl" enum "$cls" --names >"$work/names.raw"
  [ -s "$work/names.raw" ] || fail "diagctl enum $cls --names is empty"
  case "$cls" in
  *Available*)
    # Keys holding paths are written differently by the two tools: compare the counts.
    [ "$(wc -l <"$work/ein.raw")" -eq "$(wc -l <"$work/names.raw")" ] ||
      fail "ein $cls and diagctl disagree"
    [ "$(wbemcli ei "$url:$cls" | wc -l)" -eq "$(wc -l <"$work/names.raw")" ] ||
      fail "ei $cls names other instances"
    ;;
  *)
    normal <"$work/ein.raw" >"$work/ein"
    normal <"$work/names.raw" >"$work/names"
    diff -q "$work/ein" "$work/names" >/dev/null || fail "ein $cls and diagctl disagree"
    wbemcli ei "$url:$cls" | normal >"$work/ei"
    diff -q "$work/ei" "$work/names" >/dev/null || fail "ei $cls names other instances"
    ;;
  esac
  first="$(wbemcli ein "$url:$cls" | head -1)"
  wbemcli gi "http://$first" | grep -q "^127.0.0.1:$port/root/cimv2:$cls\." || fail "gi $cls"
done

# The core serves no References; the profile layer's are the answer: a service conforms to the
# Diagnostics profile.
service="$(wbemcli ein "$url:ZORQ_FSDiagService" | head -1)"
wbemcli rin "http://$service" 2>&1 | grep -q "ZORQ_FSElementConformsToProfile" || fail "rin"
wbemcli ri "http://$service" 2>&1 | grep -q "ConformantStandard=" || fail "ri"

# Every service on every element it is available to, as its associations say.
runs=0
for family in FS Net; do
  records_before="$(wbemcli ein "$url:ZORQ_${family}DiagRecord" 2>/dev/null | wc -l)"
  family_runs=0
  for service in $(wbemcli ein "$url:ZORQ_${family}DiagService"); do
    wbemcli ain -ac "ZORQ_${family}AvailableDiagService" "http://$service" >"$work/ain" ||
      fail "ain $service"
    wbemcli ai -ac "ZORQ_${family}AvailableDiagService" "http://$service" | grep -q UserOfService ||
      fail "ai $service"
    # The associations name the element last: UserOfService=root/cimv2:<Class>.<keys>
    sed -n 's|.*UserOfService=.*root/cimv2:\{0,1\}\(ZORQ_[A-Za-z]*\.[^ ]*\)$|\1|p' "$work/ain" \
      >"$work/elements"
    [ -s "$work/elements" ] || fail "no element for $service"
    while IFS= read -r element; do
      out="$(wbemcli cm "http://$service" "RunDiagnostic.ManagedElement=$element" 2>&1)"
      echo "$out" | grep -q "RunDiagnostic: [0-9]" || fail "cm RunDiagnostic $service on $element: $out"
      family_runs=$((family_runs + 1))
    done <"$work/elements"
  done
  records_after="$(wbemcli ein "$url:ZORQ_${family}DiagRecord" | wc -l)"
  [ "$records_after" -eq $((records_before + family_runs)) ] ||
    fail "$family: $family_runs runs left $((records_after - records_before)) records"
  [ "$(wbemcli ei "$url:ZORQ_${family}DiagRecord" | grep -c 'ServiceName="')" -eq "$records_after" ] ||
    fail "$family records do not all name their service"
  runs=$((runs + family_runs))
done
[ "$runs" -gt 0 ] || fail "no run was made"

# RunDiagnosticService: a job per run, completed, with its completion record; a stop request for
# an ended job (a uint16 argument) is answered 4097.
service="$(wbemcli ein "$url:ZORQ_NetDiagService" | head -1)"
element="$(wbemcli ain -ac ZORQ_NetAvailableDiagService "http://$service" |
  sed -n 's|.*UserOfService=.*root/cimv2:\{0,1\}\(ZORQ_[A-Za-z]*\.[^ ]*\)$|\1|p' | head -1)"
out="$(wbemcli cm "http://$service" "RunDiagnosticService.ManagedElement=$element" 2>&1)"
# 0: the run ended within the call; 4096: it goes on. A job either way.
echo "$out" | grep -Eq "RunDiagnosticService: (0|4096)([^0-9]|$)" || fail "cm RunDiagnosticService: $out"
job="$(echo "$out" | sed -n 's|.*Job (reference): [^:]*:\(ZORQ_NetDiagJob\.InstanceID="[^"]*"\).*|\1|p' | head -1)"
[ -n "$job" ] || fail "RunDiagnosticService named no job: $out"
for _ in $(seq 50); do
  wbemcli ei "$url:ZORQ_NetDiagJob" | grep -q "JobState=7" && break
  sleep 0.1
done
wbemcli ei "$url:ZORQ_NetDiagJob" | grep -q "JobState=7" || fail "the job did not complete"
wbemcli ei "$url:ZORQ_NetDiagCompletionRecord" | grep -q "CompletionState=" ||
  fail "no completion record"
out="$(wbemcli cm "http://127.0.0.1:$port/root/cimv2:$job" "RequestStateChange.RequestedState=5" 2>&1)"
echo "$out" | grep -q "RequestStateChange: 4097" || fail "cm RequestStateChange: $out"

# A wrong operation answers its CIM error and the server goes on.
wbemcli ein "$url:ZORQ_NoSuchClass" 2>&1 | grep -q "CIM_ERR_INVALID_CLASS" || fail "unknown class"
wbemcli ein "http://127.0.0.1:$port/root/nowhere:ZORQ_FSDiagService" 2>&1 |
  grep -q "CIM_ERR_INVALID_NAMESPACE" || fail "unknown namespace"

kill -TERM "$server_pid"
wait "$server_pid"
status=$?
server_pid=""
[ "$status" -eq 0 ] || fail "diagctl serve ended with $status after SIGTERM"
grep -q "RunDiagnostic ZORQ_" "$work/access.log" || fail "the access log names no run"
echo "$runs runs through wbemcli, $failures failures"
[ "$failures" -eq 0 ]
