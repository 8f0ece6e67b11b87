"""The copy of the tree that mutants are built from, so that the tree itself may change meanwhile."""
import hashlib
import pathlib
import re
import subprocess

# What neither the libraries nor their tests are made of.
NO_STATE = re.compile(r"^docs/|\.md$|^scripts/mutation/.*\.py$|^scripts/mutants$|^tests/mutants-equivalent\.txt$")


def read_tree(tree):
    """The content of each file of the tree by its name, and a text that names the state of its code."""
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=tree, capture_output=True,
                            check=True)
    files, state = {}, hashlib.sha256()
    for name in sorted(listed.stdout.decode().split("\0")):
        if not name or not (tree / name).is_file():
            continue
        files[name] = (tree / name).read_bytes()
        if not NO_STATE.search(name):
            state.update(name.encode() + b"\0" + hashlib.sha256(files[name]).digest())
    return files, state.hexdigest()[:16]


def copy_tree(tree, copy):
    """Makes the copy the same as the tree, untouched where it is. Returns the state of the tree."""
    files, state = read_tree(tree)
    for name, content in files.items():
        target = copy / name
        if not target.exists() or target.read_bytes() != content:
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(content)
        target.chmod((tree / name).stat().st_mode & 0o777)
    for path in copy.rglob("*"):
        if path.is_file() and str(path.relative_to(copy)) not in files:
            path.unlink()
    return state


def tree_of_scripts():
    return pathlib.Path(__file__).resolve().parent.parent.parent
