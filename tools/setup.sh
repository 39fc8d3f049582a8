# Sourced by ./run and ./test: installs what is missing, and nothing that is there.

# naro_setup GROUP...: the packages of these groups (packaging/debian-packages.txt).
naro_setup() {
    local wanted missing package
    wanted=$(for group in "$@"; do awk -v g="$group" '$1 == g { print $2 }' "$NARO_TOP/packaging/debian-packages.txt"; done)
    if ! command -v apt-get >/dev/null; then
        echo "This machine has no apt-get. Needed, by their Debian names: $(echo $wanted)" >&2
        echo "Going on as if they were there." >&2
        return 0
    fi
    missing=$(for package in $wanted; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || echo "$package"
    done)
    [ -n "$missing" ] || return 0
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || {
            echo "Please install, as root: apt-get install" $missing >&2
            return 1
        }
        echo "Some Debian packages are missing; sudo is used to install them:" $missing >&2
        as_root=(sudo)
    else
        echo "Installing:" $missing >&2
    fi
    "${as_root[@]}" apt-get update -q >&2 || echo "apt-get update failed; trying with the lists that are there" >&2
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends $missing >&2
}

# Where this project keeps what it made once: outside the checkout, so that a second clone finds it.
naro_cache() { echo "${NARO_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/naro_algo}"; }

# naro_setup_clang_format: the one version that .clang-format is written for, whatever the distribution has.
naro_setup_clang_format() {
    local home
    home=$(naro_cache)/clang-format-14.0.6
    if [ ! -x "$home/bin/clang-format" ]; then
        { python3 -m venv "$home" && "$home/bin/python" -m pip install --quiet --disable-pip-version-check \
            clang-format==14.0.6; } >&2 || {
            echo "clang-format 14 could not be had; the layout rule will be skipped" >&2
            return 0
        }
    fi
    export NARO_CLANG_FORMAT=$home/bin/clang-format
}
