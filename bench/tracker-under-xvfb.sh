#!/usr/bin/env bash
# Measures the real tracker (`ombrelo run`) on Xvfb with openbox and a private
# D-Bus: the delay from a focus change to the new activity row, then its CPU time
# while sampling (extrapolated to an hour) and its resident memory at the end.
#
#   bench/tracker-under-xvfb.sh [path/to/ombrelo] [minutes]
#
# With FOCUS=1 a focus session runs while the CPU time is measured, so that its
# per-tick work (the current activity classified every five seconds) counts.
#
# Targets: focus change to row under 100 ms; under 2 CPU-seconds per hour of
# sampling; under 20 MB resident. The private bus has no logind, so the
# per-sample inhibitor question to logind is not part of the measure (one local
# D-Bus round trip, tens of microseconds).
set -euo pipefail

binary=$(realpath "${1:-build/bench/src/app/ombrelo}")
minutes=${2:-10}
switches=20
work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# ---- The desktop ----
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
pids+=($!)
for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
export DISPLAY=":$(cat "$work/display")"
XDG_CONFIG_HOME="$work/openbox" openbox --sm-disable 2>/dev/null &
pids+=($!)
for _ in $(seq 100); do xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q window && break; sleep 0.1; done

cat >"$work/bus.conf" <<EOF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>session</type><listen>unix:path=$work/bus</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy></busconfig>
EOF
dbus-daemon --config-file="$work/bus.conf" --nofork --nopidfile --print-address=4 4>"$work/address" 2>/dev/null &
pids+=($!)
for _ in $(seq 100); do [ -s "$work/address" ] && break; sleep 0.1; done
bus=$(head -1 "$work/address")

# Two windows to switch between.
xmessage -name first -title "First window" "first" 2>/dev/null &
pids+=($!)
xmessage -name second -title "Second window" "second" 2>/dev/null &
pids+=($!)
for _ in $(seq 100); do
  first=$(xdotool search --classname '^first$' 2>/dev/null | head -1 || true)
  second=$(xdotool search --classname '^second$' 2>/dev/null | head -1 || true)
  [ -n "$first" ] && [ -n "$second" ] && break
  sleep 0.1
done

xdotool windowactivate "$second"

# ---- The tracker ----
database="$work/data/ombrelo.sqlite"
mkdir -p "$work/run" "$work/config/ombrelo"
echo '{"language": "en"}' >"$work/config/ombrelo/settings.json"
environment=(HOME="$work" XDG_DATA_HOME="$work/data" XDG_CONFIG_HOME="$work/config" XDG_RUNTIME_DIR="$work/run"
  XDG_SESSION_TYPE=x11 OMBRELO_DB="$database" OMBRELO_SYSTEM_BUS="$bus" DBUS_SESSION_BUS_ADDRESS="$bus"
  OMBRELO_LOG=error)
# env execs the program, so $! is the tracker's own process.
env "${environment[@]}" "$binary" run 2>"$work/tracker.log" &
tracker=$!
pids+=($tracker)
for _ in $(seq 100); do [ -s "$database" ] && break; sleep 0.1; done
sleep 2

# ---- Focus change to row ----
# The row's start is the tracker's clock when it handled the change, so polling
# the file late does not inflate the figure; xdotool's own start-up is included.
delays=()
target=$first
for _ in $(seq "$switches"); do
  before=$(sqlite3 "$database" "SELECT count(*) FROM activity")
  t0=$(date +%s.%N)
  xdotool windowactivate "$target"
  for _ in $(seq 500); do
    now=$(sqlite3 "$database" "SELECT count(*) FROM activity")
    [ "$now" -gt "$before" ] && break
    sleep 0.01
  done
  start=$(sqlite3 "$database" "SELECT start FROM activity ORDER BY id DESC LIMIT 1")
  delays+=("$(echo "($start - $t0) * 1000" | bc -l)")
  [ "$target" = "$second" ] && target=$first || target=$second
  sleep 1.2 # kept: rows under a second are dropped
done
printf '%s\n' "${delays[@]}" | sort -n >"$work/delays"
median=$(sed -n "$(((switches + 1) / 2))p" "$work/delays")
worst=$(tail -1 "$work/delays")
printf 'focus change to row: median %.1f ms, worst %.1f ms over %d switches\n' "$median" "$worst" "$switches"

# ---- CPU and memory while sampling ----
if [ "${FOCUS:-0}" = 1 ]; then
  env "${environment[@]}" "$binary" focus start >/dev/null
  echo "with a focus session running"
fi
ticks=$(getconf CLK_TCK)
cpu() { awk '{ print $14 + $15 }' "/proc/$tracker/stat"; }
cpu0=$(cpu)
t0=$(date +%s.%N)
end=$(($(date +%s) + minutes * 60))
while [ "$(date +%s)" -lt "$end" ]; do
  # Someone at work: a little input, and the front window's title changing.
  xdotool mousemove_relative 1 1
  xdotool set_window --name "Second window $(date +%M)" "$second"
  sleep 20
done
cpu1=$(cpu)
elapsed=$(echo "$(date +%s.%N) - $t0" | bc -l)
rss=$(awk '/VmRSS/ { print $2 }' "/proc/$tracker/status")
peak=$(awk '/VmHWM/ { print $2 }' "/proc/$tracker/status")
samples=$(echo "$elapsed / 5" | bc)
perHour=$(echo "($cpu1 - $cpu0) / $ticks * 3600 / $elapsed" | bc -l)
printf 'CPU: %.2f s over %.0f s (%d samples), %.2f CPU-seconds per hour\n' \
  "$(echo "($cpu1 - $cpu0) / $ticks" | bc -l)" "$elapsed" "$samples" "$perHour"
printf 'resident memory: %.1f MB now, %.1f MB peak\n' "$(echo "$rss / 1024" | bc -l)" "$(echo "$peak / 1024" | bc -l)"
kill -TERM "$tracker"
wait "$tracker" || true
echo "rows written: $(sqlite3 "$database" "SELECT count(*) FROM activity")"
