import os

import yaml

# Parsed files by path, kept while the file is unchanged (size and mtime).
_cache = {}


def load_from_file(path, file_type="yaml"):
    if file_type != "yaml":
        raise ValueError("unsupported file type: %s" % file_type)
    stat = os.stat(path)
    stamp = (stat.st_mtime_ns, stat.st_size)
    hit = _cache.get(path)
    if hit is not None and hit[0] == stamp:
        return hit[1]
    with open(path, encoding="utf-8") as handle:
        content = yaml.safe_load(handle)
    _cache[path] = (stamp, content)
    return content
