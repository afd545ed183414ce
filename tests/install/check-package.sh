#!/usr/bin/env bash
# Builds the Debian package from the build folder and checks its control data, its
# contents and what lintian says about it.
#     check-package.sh BUILD_DIR VERSION
set -euo pipefail
build="$1"
version="$2"
failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work" >"$work/cpack.log" ||
    { cat "$work/cpack.log"; exit 1; }
arch="$(dpkg --print-architecture)"
deb="$work/ravelo_${version}_${arch}.deb"
[ -f "$deb" ] || { fail "cpack made no $deb"; ls "$work"; exit 1; }

field() { dpkg-deb --field "$deb" "$1"; }
[ "$(field Package)" = ravelo ] || fail "Package is $(field Package)"
[ "$(field Version)" = "$version" ] || fail "Version is $(field Version), not $version"
[ "$(field Architecture)" = "$arch" ] || fail "Architecture is $(field Architecture)"
[ "$(field Section)" = utils ] || fail "Section is $(field Section)"
[ "$(field Priority)" = optional ] || fail "Priority is $(field Priority)"
[ -n "$(field Maintainer)" ] || fail "no Maintainer"
[ -n "$(field Homepage)" ] || fail "no Homepage"

# Depends: the linked libraries as dpkg-shlibdeps found them, and what Qt loads at run
# time: the Qt Quick modules, the SVG plugins, the certificates for HTTPS.
depends="$(field Depends | tr -d ' ' | tr ',' '\n' | sed 's/(.*//')"
for package in libc6 libqt6core6 libqt6gui6 libqt6network6 libqt6qml6 libqt6quick6 \
    libqt6widgets6 libxcb1 libxkbcommon-x11-0 \
    qml6-module-qtquick qml6-module-qtquick-controls qml6-module-qtquick-templates \
    qml6-module-qtqml-workerscript libqt6svg6 libqt6keychain1 libsecret-1-0 ca-certificates; do
    grep -qx "$package" <<<"$depends" || fail "Depends lacks $package: $(field Depends)"
done
# Nothing the tests or the development build need.
grep -qE -- '-dev$|^xvfb$|^qml6-module-qttest$' <<<"$depends" && fail "Depends has build tools"

# Owned by root, directories 0755, files 0644, the program 0755.
while read -r mode owner _ _ _ path; do
    [ "$owner" = root/root ] || fail "$path belongs to $owner"
    case "$mode:$path" in
        d*) [ "$mode" = drwxr-xr-x ] || fail "$path has mode $mode" ;;
        -*:./usr/bin/ravelo | -*:./usr/libexec/ravelo/ravelo-gui)
            [ "$mode" = -rwxr-xr-x ] || fail "$path has mode $mode" ;;
        *) [ "$mode" = -rw-r--r-- ] || fail "$path has mode $mode" ;;
    esac
done < <(dpkg-deb --contents "$deb")

# Listed whole first: grep -q leaving early would end tar with SIGPIPE, which pipefail reports.
dpkg-deb --ctrl-tarfile "$deb" | tar -t >"$work/control.list"
grep -qx './md5sums' "$work/control.list" || fail "no md5sums"
mkdir "$work/root"
dpkg-deb --extract "$deb" "$work/root"
for program in usr/bin/ravelo usr/libexec/ravelo/ravelo-gui; do
    file -b "$work/root/$program" | grep -q ', stripped' || fail "$program is not stripped"
done
(cd "$work/root" && dpkg-deb --info "$deb" md5sums | md5sum --check --quiet) ||
    fail "md5sums does not match the contents"

# lintian: no errors; its warnings are shown.
lintian --fail-on error --tag-display-limit 0 "$deb" || fail "lintian reports errors"

[ "$failures" -eq 0 ] || exit 1
echo "$deb is a sound package."
