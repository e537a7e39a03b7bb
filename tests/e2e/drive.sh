#!/bin/bash
# Runs Kelvo.exe under Wine in an 800x600 Wine desktop and uses it as a
# person would, with standard X tools (xdotool, xclip, xwininfo, ImageMagick).
# Runs inside the Wine root, in a namespace whose X server is $DISPLAY.
#
#   drive.sh [--windows win98] [--f1] [--close HOW] [--screenshot FILE] Kelvo.exe
#
# HOW: space (on OK; the default), enter, escape, altf4 or closebox.
# Reports what it saw as key=value lines: field (what Tab, Ctrl+C put on the
# clipboard), after_typing (the same after typing into the field), frame
# (the dialog's x,y,width,height), caption_icon (the icon's colours in the
# caption), help and after_help (with --f1: what the help engine was asked
# for, and the field afterwards), exit_code and stdout (one line each).
# Exit status 1 when no dialog appeared.
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
work=$(mktemp -d)

# The desktop and the Windows version, set before Wine starts (the prefix
# is a throwaway layer). Wine's window trace shows the help engine's request.
{
    printf '\n[Software\\\\Wine\\\\Explorer]\n"Desktop"="kelvo"\n'
    printf '\n[Software\\\\Wine\\\\Explorer\\\\Desktops]\n"kelvo"="800x600"\n'
    [ -z "$windows" ] || printf '\n[Software\\\\Wine]\n"Version"="%s"\n' "$windows"
} >>"$WINEPREFIX/user.reg"
trace=-all
[ $f1 = 0 ] || trace=-all,trace+win
WINEDEBUG=$trace /usr/lib/wine/wine "$1" >"$work/stdout" 2>"$work/stderr" &
pid=$!
wid=$(timeout 30 xdotool search --sync --onlyvisible --name '^Kelvo$' 2>/dev/null | head -n 1)
[ -n "$wid" ] || { echo "error=no dialog appeared"; kill $pid; exit 1; }

copy() {  # KEYS...: press them, then print what the clipboard holds
    printf '(none)' | xclip -selection clipboard >/dev/null 2>&1
    xdotool key "$@"
    for _ in $(seq 50); do [ "$(xclip -o -selection clipboard)" != "(none)" ] && break; sleep 0.02; done
    xclip -o -selection clipboard 2>/dev/null
}
echo "field=$(copy Tab ctrl+c)"
xdotool type x
echo "after_typing=$(copy shift+Tab Tab ctrl+c)"

read -r x y w h <<<"$(xwininfo -id "$wid" | awk '/Absolute upper-left X/ {x = $4}
    /Absolute upper-left Y/ {y = $4} /Width:/ {w = $2} /Height:/ {h = $2} END {print x, y, w, h}')"
echo "frame=$x,$y,$w,$h"

# Kelvo's icon is a blue tile with gold contacts; a dialog with a modal
# frame shows a caption icon only when it was given one.
for _ in $(seq 10); do import -window "$wid" "$work/shot.png" 2>/dev/null && break; sleep 0.05; done
colours=$(convert "$work/shot.png" -crop 24x24+0+0 -depth 8 txt:- 2>/dev/null)
grep -qi '#1F5FA8' <<<"$colours" && grep -qi '#E0B030' <<<"$colours" && icon=1
echo "caption_icon=${icon:-0}"
[ -z "$screenshot" ] || cp "$work/shot.png" "$screenshot"

if [ $f1 = 1 ]; then
    xdotool key F1
    # Wine's help engine cannot find the file and asks, in a window titled
    # ERROR, whether to look for it: No. (The key's release reaches a box
    # already gone, which X reports, harmlessly.) Then back to the dialog.
    engine=$(timeout 15 xdotool search --sync --onlyvisible --name '^ERROR$' 2>/dev/null | head -n 1)
    [ -z "$engine" ] || xdotool key --window "$engine" n 2>/dev/null
    for _ in $(seq 50); do xdotool search --onlyvisible --name '^ERROR$' >/dev/null || break; sleep 0.1; done
    xdotool mousemove --window "$wid" $((w / 2)) 10 click 1
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
for _ in $(seq 100); do kill -0 $pid 2>/dev/null || break; sleep 0.05; done
if kill $pid 2>/dev/null; then  # it was still running
    echo "exit_code=still running"
else
    wait $pid
    echo "exit_code=$?"
fi
tr -d '\r' <"$work/stdout" | sed 's/^/stdout=/'
rm -rf "$work"
