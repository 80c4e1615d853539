#!/bin/bash
# session.sh COMMAND...: runs the command inside a private desktop: Xvfb, a session bus of its own with nothing on it but
# the accessibility service, openbox, a scratch home. Everything is taken down by process id when the command ends, also
# when this script is killed. Set SESSION_NO_WM=1 for no window manager, SESSION_WM="xfwm4 --compositor=off" for another
# one, SESSION_SCREEN for another screen, and SESSION_KEEP=1 to keep the scratch folder and its logs.
set -u
die() { echo "session.sh: $*" >&2; exit 99; }
for program in Xvfb dbus-daemon gdbus openbox xprop setpriv; do
    command -v "$program" >/dev/null || die "$program is not installed"
done
scratch=$(mktemp -d "${TMPDIR:-/tmp}/snipwren-desktop.XXXXXX") || die "no scratch folder"
mkdir -m 700 "$scratch/runtime"
mkdir -p "$scratch/home" "$scratch/services"
pids=()
# A child that dies with this script, even when it is killed and no trap runs.
start() { setpriv --pdeathsig TERM "$@" & pids+=($!); }
cleanup() {
    trap - EXIT
    for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[i]}" 2>/dev/null; done
    for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null; done
    [ -n "${SESSION_KEEP:-}" ] && echo "session.sh: kept $scratch" >&2 || rm -rf "$scratch"
}
trap cleanup EXIT
trap 'exit 143' TERM INT HUP

unset WAYLAND_DISPLAY AT_SPI_BUS_ADDRESS DBUS_SESSION_BUS_ADDRESS DBUS_STARTER_ADDRESS XAUTHORITY XMODIFIERS \
    QT_IM_MODULE GTK_IM_MODULE NO_AT_BRIDGE GTK_A11Y SNIPWREN_HOME
export HOME="$scratch/home" XDG_RUNTIME_DIR="$scratch/runtime" XDG_SESSION_TYPE=x11 LANG=C.UTF-8 LC_ALL=C.UTF-8
export XDG_CONFIG_HOME="$HOME/.config" XDG_DATA_HOME="$HOME/.local/share" XDG_CACHE_HOME="$HOME/.cache" \
    XDG_STATE_HOME="$HOME/.local/state"
export GSETTINGS_BACKEND=memory GDK_BACKEND=x11 QT_QPA_PLATFORM=xcb LIBGL_ALWAYS_SOFTWARE=1
export QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1

mkfifo "$scratch/display"
exec 3<>"$scratch/display"
start Xvfb -displayfd 3 -screen 0 "${SESSION_SCREEN:-1280x800x24}" -nolisten tcp -noreset >"$scratch/xvfb.log" 2>&1
read -r -t 20 display <&3 || die "Xvfb did not start: $(cat "$scratch/xvfb.log")"
exec 3>&-
export DISPLAY=":$display"

# Only the accessibility launcher may be activated: a notifier or a keyring of this machine has no business here.
launcher=$(ls /usr/libexec/at-spi-bus-launcher /usr/lib/at-spi2-core/at-spi-bus-launcher 2>/dev/null | head -1)
[ -n "$launcher" ] && printf '[D-BUS Service]\nName=org.a11y.Bus\nExec=%s\n' "$launcher" >"$scratch/services/a11y.service"
cat >"$scratch/bus.conf" <<CONF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>session</type><listen>unix:path=$scratch/runtime/bus</listen><auth>EXTERNAL</auth>
<servicedir>$scratch/services</servicedir>
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy>
</busconfig>
CONF
export SESSION_BUS_CONFIG="$scratch/bus.conf" # For tests that need a bus to end.
mkfifo "$scratch/bus.address"
exec 4<>"$scratch/bus.address"
start dbus-daemon --config-file="$scratch/bus.conf" --nofork --nopidfile --print-address=4 2>"$scratch/bus.log"
read -r -t 20 DBUS_SESSION_BUS_ADDRESS <&4 || die "the session bus did not start"
exec 4>&-
export DBUS_SESSION_BUS_ADDRESS
if [ -n "$launcher" ]; then
    gdbus call --session -d org.a11y.Bus -o /org/a11y/bus -m org.a11y.Bus.GetAddress >"$scratch/a11y.log" 2>&1 \
        || die "no accessibility bus: $(cat "$scratch/a11y.log")"
    gdbus call --session -d org.a11y.Bus -o /org/a11y/bus -m org.freedesktop.DBus.Properties.Set \
        org.a11y.Status IsEnabled '<true>' >/dev/null
fi
if [ -n "${SESSION_WM:-}" ]; then
    read -ra window_manager <<<"$SESSION_WM"
    start "${window_manager[@]}" >"$scratch/wm.log" 2>&1
    for ((i = 0; i < 200; i++)); do
        xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' && break
        sleep 0.05
    done
    ((i < 200)) || die "$SESSION_WM did not start: $(cat "$scratch/wm.log")"
    sleep 1 # It may still be taking over the windows that are there.
elif [ -z "${SESSION_NO_WM:-}" ]; then
    # It tells when it is done starting: a window shown before then, but after it began, is never managed.
    mkfifo "$scratch/wm"
    exec 5<>"$scratch/wm"
    start openbox --startup "echo started" >&5 2>"$scratch/openbox.log"
    read -r -t 20 started <&5 || die "openbox did not start: $(cat "$scratch/openbox.log")"
    exec 5>&-
fi
"$@" &
command_pid=$!
pids+=("$command_pid")
wait "$command_pid"
exit $?
