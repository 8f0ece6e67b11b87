"""The copy of the tree that mutants are built from, so that the tree itself may change meanwhile."""
import hashlib
import pathlib
import re
import subprocess

# What neither the libraries nor their tests are made of.
NO_STATE = re.compile(r"^docs/|\.md$|^scripts/mutation/.*\.py$|^scripts/mutants$|^tests/mutants-equivalent\.txt$")


def copy_tree(tree, copy):
    """Makes the copy the same as the tree, untouched where it is. Returns a text that names the state of the tree."""
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=tree, capture_output=True, check=True)
    names = sorted(name for name in listed.stdout.decode().split("\0") if name and (tree / name).is_file())
    state = hashlib.sha256()
    for name in names:
        content = (tree / name).read_bytes()
        if not NO_STATE.search(name):
            state.update(name.encode() + b"\0" + hashlib.sha256(content).digest())
        target = copy / name
        if not target.exists() or target.read_bytes() != content:
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(content)
        target.chmod((tree / name).stat().st_mode & 0o777)
    kept = set(names)
    for path in copy.rglob("*"):
        if path.is_file() and str(path.relative_to(copy)) not in kept:
            path.unlink()
    return state.hexdigest()[:16]


def tree_of_scripts():
    return pathlib.Path(__file__).resolve().parent.parent.parent
