#!/bin/bash
# Runs Kelvo.exe under Wine in an 800x600 Wine desktop and uses it as a
# person would, with standard X tools (xdotool, xclip, xwininfo, xprop and
# ImageMagick).
# Runs inside the Wine root, in a namespace whose X server is $DISPLAY.
#
#   drive.sh [--windows win98] [--f1] [--dll-search] [--close HOW]
#            [--probe dialog_probe.exe] [--screenshot FILE [--reference PNG]]
#            Kelvo.exe
#
# HOW: space (on OK; the default), enter, escape, altf4 or closebox.
# Reports what it saw as key=value lines: picture (with --reference: how many
# pixels of the dialog as it opened differ from PNG), field (what Tab, Ctrl+C
# put on the clipboard), frame (the dialog's x,y,width,height), big_icon
# (the large icon handed to the window manager), help (with --f1: what the
# help engine was asked for), dll_search (with --dll-search: Kelvo's calls
# of SetDefaultDllDirectories, with its flags, and DialogBoxParamW, in
# order), accessible and held (with --probe: what MSAA
# says of the field, and which of iphlpapi and netapi32 Kelvo's process
# still has mapped),
# exit_code and stdout (one line each), and gave_up for each wait on Wine or
# X that ran out of time, naming what it waited for: every such wait is
# bounded. Exit status 1 when no dialog appeared.
set -u
# How many times slower than native the 32-bit programs run here (more in
# an emulated guest): every wait below is that much longer.
scale=${KELVO_TIME_SCALE:-1}
windows="" f1=0 dll_search=0 close=space screenshot="" reference="" probe=""
while [ $# -gt 1 ]; do
    case "$1" in
        --windows) windows=$2; shift 2 ;;
        --f1) f1=1; shift ;;
        --dll-search) dll_search=1; shift ;;
        --close) close=$2; shift 2 ;;
        --screenshot) screenshot=$2; shift 2 ;;
        --reference) reference=$2; shift 2 ;;
        --probe) probe=$2; shift 2 ;;
        *) break ;;
    esac
done
work=$(mktemp -d)
exec 3>&1  # the report, also from inside $(...)

# Runs COMMAND for at most SECONDS (scaled); when it runs out, says what it
# waited for.
bounded() {  # SECONDS WHAT COMMAND...
    local seconds=$(($1 * scale)) what=$2 status=0
    shift 2
    timeout "$seconds" "$@" || status=$?
    [ $status != 124 ] || echo "gave_up=$what (${seconds} s)" >&3
    return $status
}
ask_x() { bounded 5 "$*" "$@"; }  # one X request
now_us() { echo "${EPOCHREALTIME/[.,]/}"; }

# The desktop and the Windows version, set before Wine starts (the prefix
# is a throwaway layer). Wine's window trace shows the help engine's request.
{
    printf '\n[Software\\\\Wine\\\\Explorer]\n"Desktop"="kelvo"\n'
    printf '\n[Software\\\\Wine\\\\Explorer\\\\Desktops]\n"kelvo"="800x600"\n'
    [ -z "$windows" ] || printf '\n[Software\\\\Wine]\n"Version"="%s"\n' "$windows"
    [ $dll_search = 0 ] ||
        printf '\n[Software\\\\Wine\\\\Debug]\n"RelayInclude"="SetDefaultDllDirectories;DialogBoxParamW"\n'
} >>"$WINEPREFIX/user.reg"
trace=-all
[ $f1 = 0 ] || trace=-all,trace+win
[ $dll_search = 0 ] || trace=-all,+relay
WINEDEBUG=$trace /usr/lib/wine/wine "$1" >"$work/stdout" 2>"$work/stderr" &
pid=$!
wid=$(bounded 30 "a visible window titled Kelvo" xdotool search --sync --onlyvisible --name '^Kelvo$' \
    2>/dev/null | head -n 1)
[ -n "$wid" ] || { echo "error=no dialog appeared"; kill $pid; exit 1; }

copy() {  # KEYS...: press them, then print what the clipboard holds
    printf '(none)' | ask_x xclip -selection clipboard >/dev/null 2>&1
    ask_x xdotool key "$@"
    # Wine now and then leaves a selection request unanswered until another
    # X event arrives; the next request releases it. So each read is cut
    # short (0.5 s, scaled) and asked again, for up to 5 s (scaled) in all.
    local text read_limit=$((5 * scale))e-1 deadline=$(($(now_us) + 5000000 * scale))
    until text=$(timeout "$read_limit" xclip -o -selection clipboard 2>/dev/null) && [ "$text" != "(none)" ]; do
        (( $(now_us) < deadline )) || { echo "gave_up=the copy of the field after $* ($((5 * scale)) s)" >&3; break; }
        sleep 0.02
    done
    printf '%s' "$text"
}
# The dialog alone, frame included, as it opens: focus on OK, the default
# button. It may still be painting, so the picture is taken again, for up
# to a second (scaled), while it differs from the reference (without one, from the
# picture before); FILE-diff.png shows the differences in red.
if [ -n "$screenshot" ]; then
    for _ in $(seq $((20 * scale))); do
        sleep 0.05
        ask_x import -window "$wid" "$work/shot.png" 2>/dev/null || continue
        differ=$(compare -metric AE "${reference:-$screenshot}" "$work/shot.png" "${screenshot%.png}-diff.png" 2>&1)
        mv "$work/shot.png" "$screenshot" && [ "$differ" = 0 ] && break
    done
    [ -z "$reference" ] || echo "picture=${differ-no picture taken}"
fi
read -r x y w h <<<"$(ask_x xwininfo -id "$wid" | awk '/Absolute upper-left X/ {x = $4}
    /Absolute upper-left Y/ {y = $4} /Width:/ {w = $2} /Height:/ {h = $2} END {print x, y, w, h}')"
echo "frame=$x,$y,$w,$h"

# F1 first, as on a fresh start: no key has been pressed yet, so Ctrl's
# toggle state is still off.
if [ $f1 = 1 ]; then
    ask_x xdotool key F1
    # Wine's help engine cannot find the file and asks, in a window titled
    # ERROR, whether to look for it: No. (The key's release reaches a box
    # already gone, which X reports, harmlessly.) Then back to the dialog,
    # which must work as before.
    engine=$(bounded 15 "the help engine's question" xdotool search --sync --onlyvisible \
        --name '^ERROR$' 2>/dev/null | head -n 1)
    [ -z "$engine" ] || ask_x xdotool key --window "$engine" n 2>/dev/null
    for _ in $(seq $((50 * scale))); do ask_x xdotool search --onlyvisible --name '^ERROR$' >/dev/null || break; sleep 0.1; done
    ask_x xdotool mousemove --window "$wid" $((w / 2)) 10 click 1
    request=$(grep -a -m1 -o 'cmd=[0-9]* data=[0-9a-f]* fn=.*' "$work/stderr" | tr -d '\r')
    echo "help=${request:-none}" | sed 's/fn=.*\\/fn=/'
fi
echo "field=$(copy Tab ctrl+c)"
[ $dll_search = 0 ] || echo "dll_search=$(grep -a -o -E 'Call [A-Za-z0-9_]+\.(SetDefaultDllDirectories\([0-9a-f]+\)|DialogBoxParamW)' \
    "$work/stderr" | sed 's/^Call [^.]*\.//' | paste -sd ' ')"
# With the identifier shown: what a screen reader is told of the field, and
# whether Kelvo still holds the DLLs it loads only to find the address. The
# kernel lists what Kelvo's process has mapped: Wine maps each DLL it loads
# from its file and unmaps it when the last reference is freed ("kelvo.exe"
# among them shows the list was read).
if [ -n "$probe" ]; then
    bounded 20 "dialog_probe.exe" /usr/lib/wine/wine "$probe" 2>/dev/null | tr -d '\r'
    echo "held=$(grep -aoE '[^/]+\.(dll|exe)$' "/proc/$pid/maps" 2>/dev/null | tr 'A-Z' 'a-z' | sort -u |
        awk '$0 == "kelvo.exe" {read = 1} /^(iphlpapi|netapi32)\.dll$/ {held = held " " substr($0, 1, length($0) - 4)}
        END {print !read ? "(mappings unreadable)" : held == "" ? "none" : substr(held, 2)}')"
fi

# The large icon (Windows shows it in the Alt+Tab box) as Wine hands it to
# the window manager: _NET_WM_ICON's first image, its width, height and ARGB
# pixels. Kelvo's is a blue tile (#1F5FA8) with gold contacts (#E0B030);
# without one of its own the dialog is given Wine's logo.
echo "big_icon=$(ask_x xprop -id "$wid" -notype 32c _NET_WM_ICON | sed 's/^[^=]*= //; s/, /\n/g' |
    awk 'NR == 1 {w = $1} NR == 2 {h = $1} NR > 2 && NR <= 2 + w * h {seen[$1]}
         END {print w "x" h, ("4280246184" in seen && "4292915248" in seen) ? "Kelvo" : "other"}')"

case "$close" in
    space) ask_x xdotool key shift+Tab space ;;
    enter) ask_x xdotool key Return ;;
    escape) ask_x xdotool key Escape ;;
    altf4) ask_x xdotool key alt+F4 ;;
    closebox) ask_x xdotool mousemove --window "$wid" $((w - 11)) 10 click 1 ;;
esac
for _ in $(seq $((100 * scale))); do kill -0 $pid 2>/dev/null || break; sleep 0.05; done
if kill $pid 2>/dev/null; then  # it was still running
    echo "exit_code=still running"
else
    wait $pid
    echo "exit_code=$?"
fi
tr -d '\r' <"$work/stdout" | sed 's/^/stdout=/'
rm -rf "$work"
