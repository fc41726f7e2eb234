#!/usr/bin/env bash
# Fetches the single-person pose model (MoveNet Lightning, Apache-2.0 weights, in TensorFlow.js
# graph form) from the npm registry, where @vladmandic/human ships it, into the given folder.
# The package tarball is cached beside the build, so a rebuild never downloads it again.
#
#   scripts/fetch-pose-model.sh DESTINATION CACHE_FOLDER
set -euo pipefail
dest=$1 cache=$2
package="@vladmandic/human@3.3.6"
tarball="$cache/vladmandic-human-3.3.6.tgz"
mkdir -p "$dest" "$cache"
if [ ! -s "$tarball" ]; then
    echo "fetching the pose model ($package) from the npm registry"
    (cd "$cache" && npm pack --silent "$package" >/dev/null)
fi
tar -xzf "$tarball" -C "$cache" package/models/movenet-lightning.json package/models/movenet-lightning.bin
cp "$cache/package/models/movenet-lightning.json" "$cache/package/models/movenet-lightning.bin" "$dest/"
cat >"$dest/README" <<'TEXT'
MoveNet SinglePose Lightning v4 (https://tfhub.dev/google/movenet/singlepose/lightning/4),
Apache License 2.0, as converted to TensorFlow.js graph form and shipped in the npm package
@vladmandic/human 3.3.6. Tovin builds the network from these files with OpenCV at run time.
TEXT
