import yaml


def load_from_file(path, file_type="yaml"):
    if file_type != "yaml":
        raise ValueError("unsupported file type: %s" % file_type)
    with open(path, encoding="utf-8") as handle:
        return yaml.safe_load(handle)
