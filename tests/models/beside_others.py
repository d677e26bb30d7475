"""beside_others.py DUMP_FEATURES BIN: features beside scikit-image's and scipy's, and the forest's
accuracy beside scikit-learn's, on two pictures that make_micrograph draws, one of them coloured.

Ends with status 77 where one of these packages is missing.
"""

import gzip
import pathlib
import subprocess
import sys
import tempfile

try:
    import numpy as np
    import scipy.ndimage as ndi
    import skimage
    import sklearn
    from PIL import Image
    from skimage.color import rgb2lab
    from skimage.feature import hessian_matrix_eigvals, structure_tensor_eigenvalues
    from skimage.filters import gaussian
    from sklearn.ensemble import RandomForestClassifier
except ImportError as missing:
    print(f"SKIPPED: {missing} (Debian: python3-skimage, python3-sklearn)")
    sys.exit(77)

TOLERANCE = 1e-3  # of a feature's range
POINT = 0.01  # of accuracy
SCALES = (0.7, 1.4, 2.8, 5.6, 11.2, 16)
WINDOW = 0.5  # of the structure tensor, in scales


def smooth(plane, sigma):
    return gaussian(plane, sigma, mode="mirror", truncate=4, preserve_range=True)


def derived(plane, sigma, rows, columns):
    return ndi.gaussian_filter(plane, sigma, order=(rows, columns), mode="mirror")


def features_of(plane):
    """By name, what the filters give."""
    for sigma in SCALES:
        dx, dy = derived(plane, sigma, 0, 1), derived(plane, sigma, 1, 0)
        tensor = [ndi.gaussian_filter(p, WINDOW * sigma, mode="mirror")
                  for p in (dy * dy, dy * dx, dx * dx)]
        hessian = [derived(plane, sigma, 2, 0), derived(plane, sigma, 1, 1),
                   derived(plane, sigma, 0, 2)]
        structure = structure_tensor_eigenvalues(tensor)
        curvature = hessian_matrix_eigvals(hessian)
        yield f"gaussian, scale {sigma:.1f}", smooth(plane, sigma)
        yield f"gradient, scale {sigma:.1f}", np.hypot(dx, dy)
        yield f"laplacian, scale {sigma:.1f}", hessian[0] + hessian[2]
        yield f"structure 0, scale {sigma:.1f}", structure[0]
        yield f"structure 1, scale {sigma:.1f}", structure[1]
        yield f"hessian 0, scale {sigma:.1f}", curvature[0]
        yield f"hessian 1, scale {sigma:.1f}", curvature[1]


def expected(picture):
    if picture.ndim == 2:
        planes = [picture / 255]
    else:
        planes = list(np.moveaxis(rgb2lab(picture), 2, 0))
    features = {f"plane {k}": plane for k, plane in enumerate(planes)}
    for k, plane in enumerate(planes):
        for name, values in features_of(plane.astype(float)):
            features[f"plane {k}, {name}"] = values
    return features


def dumped(dump, picture, folder):
    names = subprocess.run([dump, picture, folder / "features"], check=True, text=True,
                           capture_output=True).stdout.splitlines()
    with open(folder / "features", "rb") as file:
        count, h, w = np.fromfile(file, "<u8", 3)
        values = np.fromfile(file, "<f4").reshape(int(count), int(h), int(w))
    assert count == len(names), (count, names)
    return names, values


def check_features(names, values, picture):
    wanted = expected(picture)
    assert sorted(names) == sorted(wanted), set(names) ^ set(wanted)
    worst = 0
    for name, own in zip(names, values):
        other = wanted[name]
        away = np.abs(own - other).max() / max(np.ptp(other), 1e-12)
        worst = max(worst, away)
        assert away <= TOLERANCE, f"{name}: {away:.2g} of the range away"
    print(f"{len(names)} features, at most {worst:.2g} of the range away")


def own_labels(bin_folder, folder, shape):
    subprocess.run([bin_folder / "ratseg-dataterm", "-image", folder / "image.png", "-scribbles",
                    folder / "scribbles.png", "-out", folder / "dataterm.gz", "-model", "forest",
                    "-strokes", "soft"], check=True, capture_output=True)
    with gzip.open(folder / "dataterm.gz") as file:
        costs = np.frombuffer(file.read()[8:], "<f4").reshape(-1, *shape)
    return costs.argmin(0)


def check_forest(bin_folder, folder, values):
    marks = np.array(Image.open(folder / "scribbles.png"))
    truth = np.array(Image.open(folder / "truth.png"))
    flat = values.reshape(len(values), -1).T
    marked = marks.ravel() > 0
    forest = RandomForestClassifier(100, class_weight="balanced", random_state=1, n_jobs=2)
    forest.fit(flat[marked], marks.ravel()[marked] - 1)
    theirs = forest.predict(flat).reshape(truth.shape)
    ours = own_labels(bin_folder, folder, truth.shape)
    accuracy = [(labels == truth)[marks == 0].mean() for labels in (ours, theirs)]
    print(f"accuracy {accuracy[0]:.4f}, scikit-learn's {accuracy[1]:.4f}")
    assert abs(accuracy[0] - accuracy[1]) <= POINT, accuracy


def main(dump, bin_folder):
    bin_folder = pathlib.Path(bin_folder)
    for seed in (1, 2):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            subprocess.run([bin_folder / "make_micrograph", folder, str(seed)], check=True,
                           capture_output=True)
            image = Image.open(folder / "image.png").convert("L")
            if seed == 2:
                grey = np.array(image)
                image = Image.fromarray(np.stack([grey, 255 - grey // 2, np.roll(grey, 3)], 2))
            image.save(folder / "image.png")
            names, values = dumped(dump, folder / "image.png", folder)
            check_features(names, values, np.array(image))
            check_forest(bin_folder, folder, values)


main(*sys.argv[1:])
