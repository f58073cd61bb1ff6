# SPDX-License-Identifier: Apache-2.0

"""What scripts read of a page of the manual."""
import re


class Page:
    def __init__(self, path):
        self.lines = open(path, encoding='utf-8').read().split('\n')

    def rows(self, heading):
        """The rows of all tables whose first column has this heading; there must be some."""
        found, inside = [], False
        for line in self.lines:
            cells = [cell.strip() for cell in line.split('|')[1:-1]]
            if inside and cells and not line.startswith('|-'):
                found.append(cells)
            inside = bool(cells) and (inside or cells[0] == heading)
        assert found, f'no table of "{heading}"'
        return found

    def blocks(self, kind):
        """The texts of all fenced blocks of this kind; there must be some."""
        found = re.findall(rf'^```{kind}\n(.*?)^```$', '\n'.join(self.lines), re.M | re.S)
        assert found, f'no block of the kind "{kind}"'
        return found


def code_of(cell):
    """What stands between backticks in a cell: the first of it, or nothing."""
    return (re.findall('`([^`]*)`', cell) + [''])[0]
