#!/bin/bash
# Runs Kelvo.exe under Wine in an 800x600 Wine desktop and uses it as a
# person would, with standard X tools (xdotool, xclip, xwininfo, ImageMagick).
# Runs inside the Wine root, in a namespace whose X server is $DISPLAY.
#
#   drive.sh [--windows win98] [--f1] [--close HOW] [--screenshot FILE] Kelvo.exe
#
# HOW: space (on OK), enter, escape, altf4 or closebox. Reports what it saw
# as key=value lines: field (what Tab, Ctrl+C put on the clipboard),
# after_typing (the same after typing into the field), position and size
# (the dialog's frame), caption_icon (the icon's colours in the caption),
# help (what the help engine was asked for), after_help, exit_code and
# stdout (one line each). Exit status 1 when no dialog appeared.
set -u
windows="" f1=0 close=space screenshot=""
while [ $# -gt 1 ]; do
    case "$1" in
        --windows) windows=$2; shift 2 ;;
        --f1) f1=1; shift ;;
        --close) close=$2; shift 2 ;;
        --screenshot) screenshot=$2; shift 2 ;;
        *) break ;;
    esac
done
program=$1
work=$(mktemp -d)

# A Wine desktop much larger than the dialog, and the Windows version, set
# before Wine starts (the prefix is a throwaway layer).
{
    printf '\n[Software\\\\Wine\\\\Explorer]\n"Desktop"="kelvo"\n'
    printf '\n[Software\\\\Wine\\\\Explorer\\\\Desktops]\n"kelvo"="800x600"\n'
    [ -z "$windows" ] || printf '\n[Software\\\\Wine]\n"Version"="%s"\n' "$windows"
} >>"$WINEPREFIX/user.reg"

# The help engine's request shows in Wine's window trace.
trace=-all
[ $f1 = 0 ] || trace=-all,trace+win
WINEDEBUG=$trace /usr/lib/wine/wine "$program" >"$work/stdout" 2>"$work/stderr" &
pid=$!

wid=$(timeout 30 xdotool search --sync --onlyvisible --name '^Kelvo$' 2>/dev/null | head -n 1)
if [ -z "$wid" ]; then
    echo "error=no dialog appeared"
    kill "$pid" 2>/dev/null
    exit 1
fi

copy() {  # KEYS...: press them, then print what the clipboard holds
    printf '(none)' | xclip -selection clipboard >/dev/null 2>&1
    xdotool key "$@"
    local text
    for _ in $(seq 50); do
        text=$(xclip -o -selection clipboard 2>/dev/null)
        [ "$text" != "(none)" ] && break
        sleep 0.02
    done
    printf '%s' "$text"
}

echo "field=$(copy Tab ctrl+c)"
xdotool type x
echo "after_typing=$(copy shift+Tab Tab ctrl+c)"

geometry=$(xwininfo -id "$wid")
x=$(awk '/Absolute upper-left X/ {print $4}' <<<"$geometry")
y=$(awk '/Absolute upper-left Y/ {print $4}' <<<"$geometry")
w=$(awk '/Width:/ {print $2}' <<<"$geometry")
h=$(awk '/Height:/ {print $2}' <<<"$geometry")
echo "position=$x,$y"
echo "size=${w}x$h"

# Kelvo's icon is a blue tile with gold contacts; a dialog with a modal
# frame shows a caption icon only when it was given one.
shot=$work/shot.png
for _ in $(seq 10); do
    import -window "$wid" "$shot" 2>/dev/null && break
    sleep 0.05
done
colours=$(convert "$shot" -crop 24x24+0+0 -depth 8 txt:- 2>/dev/null)
if grep -qi '#1F5FA8' <<<"$colours" && grep -qi '#E0B030' <<<"$colours"; then
    echo "caption_icon=1"
else
    echo "caption_icon=0"
fi
[ -z "$screenshot" ] || cp "$shot" "$screenshot"

if [ $f1 = 1 ]; then
    xdotool key F1
    # Wine's help engine cannot find the file and asks, in a window titled
    # ERROR, whether to look for it: No.
    engine=$(timeout 15 xdotool search --sync --onlyvisible --name '^ERROR$' 2>/dev/null | head -n 1)
    # The key's release reaches a box already gone: X reports that, harmlessly.
    [ -z "$engine" ] || xdotool key --window "$engine" n 2>/dev/null
    for _ in $(seq 50); do
        xdotool search --onlyvisible --name '^ERROR$' >/dev/null 2>&1 || break
        sleep 0.1
    done
    xdotool mousemove --window "$wid" $((w / 2)) 10 click 1  # back to the dialog
    request=$(grep -a -m1 -o 'cmd=[0-9]* data=[0-9a-f]* fn=.*' "$work/stderr" | tr -d '\r')
    echo "help=${request:-none}" | sed 's/fn=.*\\/fn=/'
    echo "after_help=$(copy shift+Tab Tab ctrl+c)"
fi

case "$close" in
    space) xdotool key shift+Tab space ;;
    enter) xdotool key Return ;;
    escape) xdotool key Escape ;;
    altf4) xdotool key alt+F4 ;;
    closebox) xdotool mousemove --window "$wid" $((w - 11)) 10 click 1 ;;
esac
for _ in $(seq 100); do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.05
done
if kill -0 "$pid" 2>/dev/null; then
    echo "exit_code=still running"
    kill "$pid"
else
    wait "$pid"
    echo "exit_code=$?"
fi
tr -d '\r' <"$work/stdout" | sed 's/^/stdout=/'
rm -rf "$work"
exit 0
