#!/usr/bin/env bash
# The Debian packages in a bare system: they install, a task is called, the plug-ins of the demo build and
# run, the debug symbols are found, and nothing is left when the packages are removed.
# Usage: packages_test.sh DIRECTORY_OF_PACKAGES
set -euo pipefail

packages=$(realpath "$1")
source=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cat >"$work/inside" <<'INSIDE'
#!/bin/sh
set -eux
export DEBIAN_FRONTEND=noninteractive LC_ALL=C
apt-get install -y -qq --no-install-recommends cmake g++ make ninja-build pkg-config qtbase5-dev >/dev/null
list() { find /etc /usr /opt /srv -xdev ! -name '*.pyc' ! -path '/etc/ld.so.cache' | sort; }
list >/work/before
apt-get install -y -qq --no-install-recommends /work/packages/*deb >/dev/null
test "$(tavo --version)" = "tavo $(dpkg-query -W -f '${Version}' tavo-desk)"
for plugin in digest_plugin digest_server_plugin; do
  cmake -S "/work/examples/$plugin" -B "/work/$plugin" >/dev/null
  cmake --build "/work/$plugin" >/dev/null
done
echo Ostrel >/work/name
export TAVO_DESK_PATH=/work/digest_server_plugin/apps
tavo call digest digest '{"path": "/work/name"}' >/work/answer
grep -q "$(sha256sum </work/name | cut -d ' ' -f 1)" /work/answer
tavo-embed /work/digest_plugin/libdigest_plugin.so -- /work/name >/work/digests
grep -q "$(sha256sum </work/name | cut -d ' ' -f 1)" /work/digests
(cd /work && tavo new app notes && cd notes && cmake --workflow --preset default) >/dev/null
g++ -std=c++17 -shared -fPIC /work/examples/hello_plugin/hello_plugin.cpp -o /work/libhello.so \
  $(pkg-config --cflags --libs tavo)
library=$(ldconfig -p | sed -n 's/.*libtavo\.so .*=> //p')
address=$(nm -D "$library" | sed -n 's/ T TAVOProcTableLoad$//p')
addr2line -e "$library" "$address" | grep '/src/.*\.cpp:[0-9]'  # It is stripped: libtavo-dbgsym knows.
apt-get purge -y -qq libtavo libtavo-dev libtavo-dbgsym tavo-desk tavo-desk-dbgsym >/dev/null
list >/work/after
diff /work/before /work/after
INSIDE
chmod +x "$work/inside"

archive=$(apt-get indextargets --no-release-info --format '$(RELEASE) $(COMPONENT) $(REPO_URI)' \
  'Created-By: Packages' | awk '$1 == "bookworm" && $2 == "main" { print $3; exit }')
mmdebstrap --quiet --variant=apt --format=null \
  --customize-hook='mkdir "$1/work" "$1/work/packages"' \
  --customize-hook="copy-in $source/examples $work/inside /work" \
  --customize-hook="cp $packages/*deb \"\$1/work/packages\"" \
  --customize-hook='chroot "$1" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root /work/inside' \
  bookworm - "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $archive bookworm main"
echo "the packages install, work and leave nothing"
