#!/usr/bin/env bash
# Builds the inference library once and prints the folder that holds it (include/, lib/); all talk goes to the error
# stream. The result lives outside the build folders, under a key of version, flags, layers and compiler, so that a
# second build, another preset or another checkout finds it there. For another machine: CXX, CC and CXXFLAGS of its
# compiler, and its name in NCNN_PROCESSOR (model/check_arm does so).
#
# The library is in no distribution: its authors publish the whole source on PyPI. `pip download` refuses that file
# (its setup names itself after today's date, which never matches), so it is fetched by name and version with
# pypi-simple and checked against the digest below.
set -euo pipefail
version=1.0.20261020
sha256=ad8cdd63e9755cfa8e23b9b6d9ce46156077d80298a89e7c3ba325ffccfca200
fetcher=pypi-simple==1.8.0

here=$(cd "$(dirname "$0")" && pwd)
cache=${NARO_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/naro_algo}
compiler=${CXX:-c++}
say() { echo "ncnn: $*" >&2; }

# What the model does not need is off: other layers, formats and instruction sets that cost build time and size.
# NCNN_RUNTIME_CPU keeps the choice of vector instructions for the machine that runs it.
flags=(-DCMAKE_BUILD_TYPE=Release -DCMAKE_POSITION_INDEPENDENT_CODE=ON -DCMAKE_POLICY_VERSION_MINIMUM=3.5
    -DNCNN_RUNTIME_CPU=ON)
for name in VULKAN OPENMP SHARED_LIB BUILD_TOOLS BUILD_EXAMPLES BUILD_BENCHMARK BUILD_TESTS PYTHON INT8 BF16 \
    WEIGHT_QUANT PIXEL_ROTATE PIXEL_AFFINE PIXEL_DRAWING C_API PLATFORM_API BATCH XOP AVX512 AVXVNNI AVXNECONVERT \
    STRING STDIO; do
    flags+=("-DNCNN_$name=OFF")
done
if [ -n "${NCNN_PROCESSOR:-}" ]; then
    flags+=(-DCMAKE_SYSTEM_NAME=Linux "-DCMAKE_SYSTEM_PROCESSOR=$NCNN_PROCESSOR" "-DCMAKE_CXX_FLAGS=${CXXFLAGS:-}")
fi
wanted=$(tr '[:upper:]' '[:lower:]' <"$here/ncnn_layers.txt" | grep -v '^ *#' | tr -s '[:space:]' ' ')

key=$({ printf '%s\n' "$version" "${flags[@]}" "$wanted"; "$compiler" --version | head -n 1; uname -m; } | sha256sum | cut -c1-16)
prefix=$cache/ncnn-$version-$key
if [ -e "$prefix/complete" ]; then
    echo "$prefix"
    exit 0
fi

mkdir -p "$cache"
# Two builds at once (two presets, two checkouts) must not meet in the same folder.
exec 9>"$cache/ncnn.lock"
flock 9
if [ -e "$prefix/complete" ]; then
    echo "$prefix"
    exit 0
fi

source_archive=$cache/ncnn-$version.tar.gz
if ! echo "$sha256  $source_archive" | sha256sum --check --status 2>/dev/null; then
    say "fetching the source of version $version"
    [ -x "$cache/fetch/bin/python" ] || python3 -m venv "$cache/fetch" >&2
    "$cache/fetch/bin/python" -m pip install --quiet --disable-pip-version-check "$fetcher" >&2
    "$cache/fetch/bin/python" - "$version" "$source_archive" <<'PYTHON' >&2
import sys
from pypi_simple import PyPISimple

version, target = sys.argv[1:]
with PyPISimple() as client:
    for package in client.get_project_page("ncnn").packages:
        if package.version == version and package.package_type == "sdist":
            client.download_package(package, path=target, verify=True)
            break
    else:
        sys.exit(f"ncnn: no source distribution of version {version} was found")
PYTHON
    echo "$sha256  $source_archive" | sha256sum --check --status || {
        say "the fetched source does not have the digest it should have: refused"
        rm -f "$source_archive"
        exit 1
    }
fi

work=$(mktemp -d "$cache/build.XXXXXX")
trap 'rm -rf "$work"' EXIT
tar -xzf "$source_archive" -C "$work"
source=$work/ncnn-$version
while read -r layer; do
    case " $wanted " in *" $layer "*) ;; *) flags+=("-DWITH_LAYER_$layer=OFF") ;; esac
done < <(sed -n 's/^ncnn_add_layer(\([A-Za-z0-9_]*\).*/\L\1/p' "$source/src/CMakeLists.txt")

say "building version $version with $(echo $wanted | wc -w) layers (once; one to three minutes on two cores)"
generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
log=$work/log
if ! { cmake -S "$source" -B "$work/build" "${generator[@]}" "${flags[@]}" -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_INSTALL_PREFIX="$prefix.part" && cmake --build "$work/build" --parallel "$(nproc)" &&
    cmake --install "$work/build"; } >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    say "the build failed; its last lines are above"
    exit 1
fi
rm -rf "$prefix"
mv "$prefix.part" "$prefix"
touch "$prefix/complete"
say "built: $(du -h "$prefix/lib/libncnn.a" | cut -f1) library"
echo "$prefix"
