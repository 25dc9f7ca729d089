#!/usr/bin/env python3
"""Writes an OBJ's positions in a shuffled order, its faces renumbered to match, to measure what
a mesh's vertex order costs a fit: shuffle_obj.py IN.obj OUT.obj [SEED]. Only v and f lines are
kept (texture coordinates and normals are dropped with their indices)."""
import random
import sys


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    positions, faces = [], []
    try:
        with open(sys.argv[1]) as source:
            for number, line in enumerate(source, 1):
                if line.startswith('v '):
                    positions.append(line)
                elif line.startswith('f '):
                    # Negative indices count back from the positions read so far.
                    face = [index if index > 0 else len(positions) + 1 + index
                            for index in (int(corner.split('/')[0]) for corner in line.split()[1:])]
                    if not all(1 <= index <= len(positions) for index in face):
                        sys.exit(f'{sys.argv[1]}:{number}: a face names a position not read before it')
                    faces.append(face)
    except OSError as error:
        sys.exit(f'{sys.argv[1]}: {error.strerror}')
    except ValueError:
        sys.exit(f'{sys.argv[1]}:{number}: a face index is not a number')
    order = list(range(len(positions)))
    random.Random(int(sys.argv[3]) if len(sys.argv) == 4 else 1).shuffle(order)
    new_index = [0] * len(positions)
    for new, old in enumerate(order):
        new_index[old] = new + 1
    with open(sys.argv[2], 'w') as out:
        out.writelines(positions[old] for old in order)
        for face in faces:
            out.write('f ' + ' '.join(str(new_index[i - 1]) for i in face) + '\n')


if __name__ == '__main__':
    main()
