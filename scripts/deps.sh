#!/usr/bin/env bash
# Installs the Debian 12 packages Ravelo needs to build, run and test.
# Sourced by scripts/run and scripts/test; does nothing when all are present.
set -euo pipefail

RAVELO_PACKAGES=(
    cmake ninja-build g++ pkg-config clang-format
    qt6-base-dev qt6-base-private-dev qt6-declarative-dev qt6-declarative-private-dev
    qt6-svg-dev libgl-dev
    # the API key in the system keyring; QtKeychain loads libsecret when it runs
    qtkeychain-qt6-dev libsecret-1-0
    # the translation catalogues: lupdate and lrelease, their CMake functions, Qt's own texts
    qt6-l10n-tools qt6-tools-dev qt6-translations-l10n
    qml6-module-qtquick qml6-module-qtquick-controls qml6-module-qtquick-layouts
    qml6-module-qtquick-window qml6-module-qtquick-templates qml6-module-qtqml-workerscript
    qml6-module-qttest qml6-module-qtquick-dialogs
    libx11-dev libx11-xcb-dev libxcb1-dev libxcb-xinput-dev libxcb-xtest0-dev libxcb-xkb-dev libxcb-xfixes0-dev libxcb-shape0-dev
    libxkbcommon-dev libxkbcommon-x11-dev libxtst-dev
    xvfb xauth xdotool xclip x11-utils openbox xcompmgr trayer dbus-daemon
    # the Wayland clipboard client, and the headless sway and KWin sessions of the tests
    libwayland-dev wl-clipboard sway kwin-wayland xwayland x11-xserver-utils
    xdg-desktop-portal xdg-desktop-portal-kde qtwayland5
    # GNOME's custom shortcuts, written through gsettings, and watching calls on the bus in tests
    libglib2.0-bin gnome-settings-daemon-common dbus-bin
    # a Secret Service of the tests' own, and secret-tool to read what Ravelo stored there
    gnome-keyring libsecret-tools
    # reading the accessibility tree of the running application, as a screen reader does
    python3-pyatspi at-spi2-core
    # checking the installed layout and the Debian package
    desktop-file-utils appstream file groff-base dpkg-dev lintian
)

ravelo_install_deps() {
    local missing=()
    local pkg
    for pkg in "${RAVELO_PACKAGES[@]}" "$@"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
            missing+=("$pkg")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    local sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        sudo=(sudo)
    fi
    echo "Installing: ${missing[*]}"
    "${sudo[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
}
