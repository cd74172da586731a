#!/usr/bin/env bash
# The windows as a window manager sees them, on a private X server with
# openbox: exact titles, fixed sizes without a maximize action, the class the
# desktop entry names, menu shortcuts that work while the preferences window
# has the focus, and the keys that close a window or dismiss an alert.
# Usage: windows.sh DECKWRIGHT_BINARY
set -euo pipefail
app="$1"
for tool in Xvfb openbox xdotool xprop; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done

work="$(mktemp -d)"
pids=()
cleanup() {
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

fail() { echo "FAIL: $*"; exit 1; }

# The title the window manager shows (WM_NAME may be a shortened Latin-1 copy).
title() { xprop -id "$1" -notype _NET_WM_NAME 2>/dev/null | sed -n 's/^_NET_WM_NAME = "\(.*\)"$/\1/p'; }

# Waits until the command succeeds; two minutes at most, which only a hang
# reaches on a loaded machine.
until_() { for _ in $(seq "${tries:-1200}"); do "$@" && return 0; sleep 0.1; done; return 1; }

# Waits for a visible window whose whole title is $1; prints its id.
window() {
    local id
    for _ in $(seq "${tries:-1200}"); do
        for id in $(xdotool search --onlyvisible --name . 2>/dev/null); do
            [[ "$(title "$id")" == "$1" ]] && { echo "$id"; return 0; }
        done
        sleep 0.1
    done
    return 1
}
press() { xdotool windowfocus --sync "$1" 2>/dev/null || true; xdotool key "$2"; }
# Presses a key in window $1 until what it should bring about ($3...) is seen.
# A key sent while the window manager still moves the focus is lost, so it is
# sent again after ten seconds without an effect.
press_until() {
    local id="$1" key="$2"; shift 2
    for _ in $(seq 12); do press "$id" "$key"; tries=100 "$@" && return 0; done
    return 1
}

exec 3>"$work/display"
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp >/dev/null 2>&1 &
pids+=($!)
until_ test -s "$work/display" || fail "Xvfb did not start"
export DISPLAY=":$(cat "$work/display")"
openbox >/dev/null 2>&1 &
pids+=($!)
# Windows mapped before the window manager manages the screen would keep no decorations or hints.
wm_ready() { xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id'; }
until_ wm_ready || fail "openbox did not start"

export HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" XDG_RUNTIME_DIR="$work/run"
mkdir -p "$HOME" "$XDG_RUNTIME_DIR" "$work/in/Talk.key"
chmod 700 "$XDG_RUNTIME_DIR"
unset QT_QPA_PLATFORM

# A first batch without an output folder asks for one.
"$app" "$work/in/Talk.key" >"$work/app.log" 2>&1 &
app_pid=$!
pids+=($app_pid)
chooser="$(window "Choose Folder To Save To")" || fail "no window titled exactly \"Choose Folder To Save To\""
press "$chooser" Escape

main="$(window Deckwright)" || fail "no main window titled \"Deckwright\""
open="$(press_until "$main" ctrl+o window "Choose File To Convert")" || fail "no open dialog titled exactly \"Choose File To Convert\""
press "$open" Escape

prefs="$(press_until "$main" ctrl+comma window General)" || fail "no preferences window titled exactly \"General\""

for id in "$main" "$prefs"; do
    name="$(title "$id")"
    hints="$(xprop -id "$id" WM_NORMAL_HINTS)"
    min="$(sed -n 's/.*minimum size: //p' <<<"$hints")"
    max="$(sed -n 's/.*maximum size: //p' <<<"$hints")"
    [[ -n "$min" && "$min" == "$max" ]] || fail "\"$name\" is not of fixed size (min '$min', max '$max')"
    xprop -id "$id" _NET_WM_ALLOWED_ACTIONS | grep -q MAXIMIZE && fail "\"$name\" can be maximized"
done

# A dock groups the windows under the launcher by the class the desktop entry names.
class="$(sed -n 's/^StartupWMClass=//p' "$(dirname "$0")/../../dist/com.bramblefox.Deckwright.desktop")"
xprop -id "$main" WM_CLASS | grep -q ", \"$class\"\$" || fail "the main window's class is not \"$class\""

# Ctrl+W closes the preferences window, whatever control has the focus.
shown() { xdotool search --onlyvisible --name . 2>/dev/null | grep -qx "$1"; }
press_until "$prefs" ctrl+w until_ eval '! shown "$prefs"' || fail "Ctrl+W did not close the preferences window"

# Escape dismisses an alert: a second start hands this one a folder without packages.
mkdir -p "$work/empty"
"$app" "$work/empty" >>"$work/app.log" 2>&1 &
pids+=($!)
other() { for id in $(xdotool search --onlyvisible --name . 2>/dev/null); do
    [[ "$id" != "$main" && "$(title "$id")" == Deckwright ]] && { echo "$id"; return 0; }; done; return 1; }
alert="$(until_ other)" || fail "no alert for a folder without packages"
press_until "$alert" Escape until_ eval '! shown "$alert"' || fail "Escape did not dismiss the alert"

prefs="$(press_until "$main" ctrl+comma window General)" || fail "the preferences window did not come back"
# Quit from the preferences window, not the main window.
gone() { ! kill -0 "$app_pid" 2>/dev/null; }
press_until "$prefs" ctrl+q until_ gone || fail "Ctrl+Q in the preferences window did not quit"
# Ended, and how: a crash or a sanitizer's report at exit is no quit.
status=0
wait "$app_pid" || status=$?
((status == 0)) || { cat "$work/app.log"; fail "Deckwright ended with status $status after Ctrl+Q"; }
echo "PASS"
