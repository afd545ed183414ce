#!/usr/bin/env bash
# Installs the build into a temporary root and checks what a desktop expects to find there.
#     check-install.sh BUILD_DIR VERSION
set -euo pipefail
build="$1"
version="$2"
failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

root="$(mktemp -d)"
trap 'rm -rf "$root"' EXIT
DESTDIR="$root" cmake --install "$build" --prefix /usr >/dev/null
cd "$root/usr"

sizes=(16 22 24 32 48 64 128 256)
expected=(
    bin/ravelo
    libexec/ravelo/ravelo-gui
    share/applications/ravelo.desktop
    share/icons/hicolor/scalable/apps/ravelo.svg
    share/icons/hicolor/scalable/apps/ravelo-symbolic.svg
    share/metainfo/io.github.ravelo.Ravelo.metainfo.xml
    share/man/man1/ravelo.1.gz
    share/doc/ravelo/copyright
    share/doc/ravelo/changelog.gz
)
for size in "${sizes[@]}"; do
    expected+=("share/icons/hicolor/${size}x${size}/apps/ravelo.png")
done

# Exactly these files, nothing else (no test programs, no build leftovers).
diff <(printf '%s\n' "${expected[@]}" | sort) <(find . -type f -printf '%P\n' | sort) ||
    fail "the installed files differ from the expected list"

programs=(bin/ravelo libexec/ravelo/ravelo-gui)
for program in "${programs[@]}"; do
    [ -x "$program" ] || fail "$program is not executable"
done
for file in "${expected[@]}"; do
    [[ " ${programs[*]} " == *" $file "* ]] && continue
    mode="$(stat -c %a "$file" 2>/dev/null || true)"
    [ "$mode" = 644 ] || fail "$file has mode $mode, not 644"
done

# Every PNG really has the size its folder names.
for size in "${sizes[@]}"; do
    png="share/icons/hicolor/${size}x${size}/apps/ravelo.png"
    file -b "$png" | grep -q "^PNG image data, $size x $size, 8-bit/color RGBA" ||
        fail "$png: $(file -b "$png")"
done
file -b share/icons/hicolor/scalable/apps/ravelo.svg | grep -q SVG || fail "ravelo.svg is no SVG"
# The symbolic bolt is one SVG in one colour, so that it can be recoloured.
symbolic=share/icons/hicolor/scalable/apps/ravelo-symbolic.svg
file -b "$symbolic" | grep -q SVG || fail "ravelo-symbolic.svg is no SVG"
[ "$(grep -oiE '#[0-9a-f]{6}\b' "$symbolic" | sort -u | wc -l)" = 1 ] ||
    fail "ravelo-symbolic.svg has more than one colour"

# The desktop entry starts Ravelo from the menu without a terminal.
desktop=share/applications/ravelo.desktop
desktop-file-validate "$desktop" || fail "desktop-file-validate found problems"
for line in 'Name=Ravelo' 'Exec=ravelo' 'Icon=ravelo' 'Terminal=false' 'Type=Application'; do
    grep -qx "$line" "$desktop" || fail "$desktop lacks $line"
done
grep -qE '^Categories=(.*;)?Utility;' "$desktop" || fail "$desktop is not in Utility"

# The AppStream metadata validates and names the desktop entry and this version.
metainfo=share/metainfo/io.github.ravelo.Ravelo.metainfo.xml
appstreamcli validate --no-net "$metainfo" || fail "appstreamcli validate found errors"
grep -q '<launchable type="desktop-id">ravelo.desktop</launchable>' "$metainfo" ||
    fail "the metadata does not launch ravelo.desktop"
grep -q "<release version=\"$version\"" "$metainfo" || fail "the metadata lacks release $version"

# The manual page renders without a warning and documents every command of --help.
page="$(mktemp)"
# One line per paragraph, so that searched phrases are neither broken nor hyphenated.
warnings="$(zcat share/man/man1/ravelo.1.gz | groff -man -Tutf8 -ww -rLL=2000n -P-cbou 2>&1 >"$page")"
[ -z "$warnings" ] || fail "groff warns about the manual page: $warnings"
help="$(bin/ravelo --help)"
while read -r command; do
    grep -qF -- "$command" "$page" || fail "the manual page does not document '$command'"
done < <(grep -oE '^  ravelo( [a-z-]+)*' <<<"$help" | sed 's/^  //')
for section in 'EXIT STATUS' FILES ENVIRONMENT 'Ravelo is not running.' Ravelo.conf 0600 \
    openai_base_url DISPLAY XDG_RUNTIME_DIR; do
    grep -qF "$section" "$page" || fail "the manual page does not mention $section"
done
grep -q "Ravelo $version" "$page" || fail "the manual page is not for version $version"
grep -qF "/usr/libexec/ravelo/ravelo-gui" "$page" || fail "the manual page does not name ravelo-gui"
rm -f "$page"

# The installed command starts the installed application program.
env -u DISPLAY -u WAYLAND_DISPLAY QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR="$root" \
    XDG_CONFIG_HOME="$root/config" bin/ravelo --no-such-option 2>"$root/start.err" &&
    fail "bin/ravelo took an unknown option"
grep -q "unknown option '--no-such-option'" "$root/start.err" ||
    fail "bin/ravelo did not start libexec/ravelo/ravelo-gui: $(cat "$root/start.err")"

# The changelog's latest entry is this version.
zcat share/doc/ravelo/changelog.gz | head -1 | grep -q "^ravelo ($version) " ||
    fail "changelog.gz does not start with version $version"

[ "$failures" -eq 0 ] || exit 1
echo "The installation under $root/usr is complete."
