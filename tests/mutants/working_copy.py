"""A copy of the sources that may be broken. It keeps its builds from run to run."""

import os
import pathlib
import shutil
import subprocess

from mutant import PatchFault


def _sources(root):
    """The files that are in the repository, or could be added to it."""
    listed = subprocess.run(
        ["git", "-C", root, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
        stdout=subprocess.PIPE, check=True, text=True).stdout
    return {name for name in listed.split("\0") if name and (root / name).is_file()}


class WorkingCopy:
    def __init__(self, root, folder=None):
        self.root = root
        self.folder = pathlib.Path(folder or root / "build" / "mutate")
        self.tree = self.folder / "tree"
        self.listed = self.folder / "files"  # what was copied last time

    def refresh(self):
        """Makes the copy equal to the sources; what is equal already keeps its time."""
        names = _sources(self.root)
        former = set(self.listed.read_text().splitlines()) if self.listed.exists() else set()
        for name in former - names:
            (self.tree / name).unlink(missing_ok=True)
        for name in names:
            self._copy(name)
        self.listed.write_text("\n".join(sorted(names)))
        self._share_libraries()

    def apply(self, mutant):
        for name in mutant.files:
            if not (self.root / name).is_file():
                raise PatchFault(f"does not apply: there is no {name}")
        # Outside of any repository, the paths in the patch are those of this folder.
        environment = {**os.environ, "GIT_CEILING_DIRECTORIES": str(self.folder)}
        done = subprocess.run(
            ["git", "apply", "-C1", "--recount", "--whitespace=nowarn", str(mutant.path)],
            cwd=self.tree, env=environment, text=True,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if done.returncode != 0:
            raise PatchFault(f"does not apply: {done.stdout.strip()}")
        if all(self._is_as_it_was(name) for name in mutant.files):
            raise PatchFault("changes nothing")

    def restore(self, mutant):
        for name in mutant.files:
            if (self.root / name).is_file():
                self._copy(name)

    def remove(self):
        shutil.rmtree(self.folder)

    def _is_as_it_was(self, name):
        original, copy = self.root / name, self.tree / name
        return copy.is_file() and original.read_bytes() == copy.read_bytes()

    def _copy(self, name):
        copy = self.tree / name
        if self._is_as_it_was(name):
            return
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(self.root / name, copy)  # with a new time, so that it is built again
        shutil.copymode(self.root / name, copy)

    def _share_libraries(self):
        """Lets the Windows build find the cross-compiled libraries."""
        built, shared = self.root / "build" / "dependencies", self.tree / "build" / "dependencies"
        if built.is_dir() and not shared.exists():
            shared.parent.mkdir(exist_ok=True)
            shared.symlink_to(built, target_is_directory=True)
