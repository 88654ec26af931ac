# SPDX-License-Identifier: MIT
"""Reads scripts/mutate.equivalent; used by scripts/mutate, whose --help has the format."""

import re

from mutants import squeezed


class Equivalents:
    """The mutants that change nothing observable, by text: line numbers change too often."""

    def __init__(self, root):
        self.root = root
        self.entries = {}  # the key of a mutant: [(function or "", reason)]
        path = root / "scripts/mutate.equivalent"
        text = path.read_text() if path.exists() else ""
        for block in re.split(r"\n\s*\n", re.sub(r"^#.*\n", "", text, flags=re.MULTILINE).strip()):
            if block:
                self.add(*block.split("\n"))

    def add(self, head, *lines):
        file, _, function = head.partition(": ")
        before, after = (squeezed(" ".join(x[1:] for x in lines if x[:1] == sign)) for sign in "-+")
        reason = squeezed(" ".join(x for x in lines if x[:1] not in ("-", "+")))
        self.entries.setdefault((file, before, after), []).append((function, reason))

    def reasonOf(self, mutant):
        """@return why it changes nothing, or None."""
        for function, reason in self.entries.get(mutant.key(), []):
            if function in ("", mutant.function):
                return reason
        return None

    def stale(self, mutants):
        """@return the entries that match none of the mutants, where their files are among them."""
        keys = {mutant.key() for mutant in mutants}
        files = {mutant.file for mutant in mutants}
        for file, before, after in self.entries.keys() - keys:
            if file in files or not (self.root / file).exists():
                yield f"{file}: {before} -> {after}"
