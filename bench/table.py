# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""A table of figures beside their goals."""


class Table:
    def __init__(self):
        self.rows, self.missed = [], 0

    def ratio(self, what, measured, most=None, least=None):
        goal = f"at most {most:.4g}" if most is not None else f"at least {least:g}"
        met = measured <= most if most is not None else measured >= least
        self.missed += not met
        self.rows.append((what, goal, f"{measured:.3g}", "met" if met else "**missed**"))

    def report(self, what, text):
        self.rows.append((what, "", text, "reported"))

    def markdown(self):
        lines = ["| what | goal | measured | |", "|---|---|---|---|"]
        return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in self.rows]) + "\n"

    def counts(self):
        return f"{len(self.rows) - self.missed} passed, {self.missed} failed"
