#!/usr/bin/python3
"""Writes the golden images of the filter tests (tests/render/filters/).

Each case is one file, <case>.lvg: the filter's parameters, its input images
and the expected result, computed here in float64 with numpy, straight from
each filter's definition and independently of the engine's code. Inputs are
small and hostile: values below 0 and above 1, NaN and infinities where the
filter defines them, 1 x 1 and 1 x N images, kernels wider than the image.

Run from anywhere, with Debian's Python (it has numpy):
    /usr/bin/python3 tests/data/golden/make_goldens.py
Goldens are regenerated only by this command, after looking at the
difference.

File layout, little-endian: b"LVGD", u32 version 1, u32 parameter count,
that many f64, u32 image count, then per image u32 width, height, bands and
width x height x bands f32 values, rows from the top, bands interleaved. The
last image is the expected result.
"""

import math
import pathlib
import struct

import numpy as np

HERE = pathlib.Path(__file__).resolve().parent
rng = np.random.default_rng(20261124)
written = []


def write(name, params, inputs, expected):
    data = bytearray(b"LVGD")
    data += struct.pack("<II", 1, len(params))
    data += struct.pack("<%dd" % len(params), *params)
    images = list(inputs) + [expected]
    data += struct.pack("<I", len(images))
    for image in images:
        image = np.asarray(image, dtype=np.float64)
        if image.ndim == 2:
            image = image[:, :, None]
        h, w, b = image.shape
        data += struct.pack("<III", w, h, b)
        with np.errstate(over="ignore"):  # values beyond float32 are meant to become infinite
            data += image.astype("<f4").tobytes()
    (HERE / (name + ".lvg")).write_bytes(bytes(data))
    written.append(name)


def f32(a):
    """The values as the engine stores them (inputs are float32 images)."""
    return np.asarray(a, dtype=np.float32).astype(np.float64)


def hostile(h, w, bands=3, nan=False, inf=False):
    """Values mostly in -0.5 ... 1.5, with exact 0 and 1, -0, tiny and huge
    values, and NaN or infinities when asked."""
    a = rng.uniform(-0.5, 1.5, size=(h, w, bands))
    specials = [0.0, 1.0, -0.0, 1e-30, 1e4, -3.0, 0.5]
    if nan:
        specials.append(np.nan)
    if inf:
        specials += [np.inf, -np.inf]
    flat = a.reshape(-1)
    count = min(len(specials), flat.size // 3)
    for i, v in zip(rng.choice(flat.size, count, replace=False), specials):
        flat[i] = v
    return f32(a if bands > 1 else a[:, :, 0])


def smooth(h, w, bands=3, noise=0.05):
    """A photo-like input: ramps plus some noise, a little beyond 0 ... 1."""
    y, x = np.mgrid[0:h, 0:w]
    base = [0.6 * x / max(w - 1, 1) + 0.3 * y / max(h - 1, 1) - 0.05,
            0.5 + 0.5 * np.sin(x * 0.7 + y * 0.3),
            1.1 - 0.8 * y / max(h - 1, 1)]
    a = np.stack(base[:bands], axis=-1) + rng.normal(0, noise, size=(h, w, bands))
    return f32(a if bands > 1 else a[:, :, 0])


def channels(a):
    return a if a.ndim == 3 else a[:, :, None]


# ------------------------------------------------------------------ point


def exposure(a, ev):
    return a * 2.0 ** ev


def color_matrix(a, m):
    """m: 20 values, the r, g, b, a vectors and the bias; alpha is 1."""
    rows = np.array(m[:16]).reshape(4, 4)
    bias = np.array(m[16:])
    if a.ndim == 2:
        return a * rows[0, :3].sum() + rows[0, 3] + bias[0]
    out = np.empty_like(a)
    for c in range(3):
        out[..., c] = (a[..., 0] * rows[c, 0] + a[..., 1] * rows[c, 1] + a[..., 2] * rows[c, 2]
                       + rows[c, 3] + bias[c])
    return out


def color_clamp(a, lo, hi):
    a = channels(a).copy()
    for c in range(a.shape[2]):
        v = np.where(np.isnan(a[..., c]), lo[c], a[..., c])
        a[..., c] = np.minimum(np.maximum(v, lo[c]), hi[c])
    return a


def gamma(a, p):
    with np.errstate(invalid="ignore"):
        return np.sign(a) * np.abs(a) ** p


def color_cube(a, cube, n):
    """Trilinear lookup; cube entry (b n + g) n + r holds R, G, B, A."""
    grey = a.ndim == 2
    rgb = np.repeat(a[:, :, None], 3, axis=2) if grey else a
    table = np.asarray(cube).reshape(n, n, n, 4)  # [b][g][r]
    v = np.clip(np.nan_to_num(rgb, nan=0.0), 0, 1) * (n - 1)
    cell = np.minimum(np.floor(v), n - 2).astype(int)
    t = v - cell
    out = np.zeros(rgb.shape)
    for db in (0, 1):
        for dg in (0, 1):
            for dr in (0, 1):
                w = ((t[..., 0] if dr else 1 - t[..., 0]) * (t[..., 1] if dg else 1 - t[..., 1])
                     * (t[..., 2] if db else 1 - t[..., 2]))
                entry = table[cell[..., 2] + db, cell[..., 1] + dg, cell[..., 0] + dr, :3]
                out += w[..., None] * entry
    return out[..., 0] if grey else out


# ------------------------------------------------------------------ blur


def discrete_gaussian(sigma):
    """Weights w[0 ... R] of e^-t I_k(t), t = sigma^2, by the Bessel series,
    cut where the two tails weigh below 1/1000 and normalised."""
    t = sigma * sigma
    weights, inside = [], 0.0
    for k in range(0, 1000):
        total = 0.0
        for m in range(0, 400):
            term = math.exp(-t + (2 * m + k) * math.log(t / 2) - math.lgamma(m + 1) - math.lgamma(m + k + 1))
            total += term
            if m > t and term < 1e-18 * total:
                break
        weights.append(total)
        inside += total if k == 0 else 2 * total
        if 1 - inside < 1e-3:
            assert abs(1 - inside - 1e-3) > 1e-7, "cut too close to call"
            break
    return np.array(weights) / inside


def convolve_axis(a, w, axis):
    """Symmetric taps w[0 ... R] along `axis`, edges repeated."""
    r = len(w) - 1
    pad = [(0, 0)] * a.ndim
    pad[axis] = (r, r)
    p = np.pad(a, pad, mode="edge")
    n = a.shape[axis]
    out = np.zeros_like(a)
    for k in range(-r, r + 1):
        out += w[abs(k)] * np.take(p, range(r + k, r + k + n), axis=axis)
    return out


def gaussian(a, sigma):
    if sigma <= 0.05:
        return a
    w = discrete_gaussian(sigma)
    return convolve_axis(convolve_axis(a, w, 0), w, 1)


def unsharp(a, radius, intensity):
    return a + intensity * (a - gaussian(a, radius))


# ------------------------------------------------------------------ composite


def blend(a, b, m):
    m = channels(m)[..., :1]
    a3, b3 = channels(a), channels(b)
    if a3.shape[2] != b3.shape[2]:
        a3, b3 = np.broadcast_to(a3, b3.shape) if a3.shape[2] == 1 else a3, \
                 np.broadcast_to(b3, a3.shape) if b3.shape[2] == 1 else b3
    return a3 * m + b3 * (1 - m)


def dissolve(a, b, t):
    t = min(max(t, 0.0), 1.0)
    return (1 - t) * a + t * b


def luminosity(source, backdrop):
    """The W3C compositing luminosity mode: SetLum(backdrop, Lum(source)),
    then ClipColor; a luminosity outside (0, 1) leaves only its grey."""
    def lum(c):
        return 0.3 * c[..., 0] + 0.59 * c[..., 1] + 0.11 * c[..., 2]
    c = backdrop + (lum(source) - lum(backdrop))[..., None]
    out = np.empty_like(c)
    for idx in np.ndindex(c.shape[:2]):
        px = c[idx].copy()
        l = 0.3 * px[0] + 0.59 * px[1] + 0.11 * px[2]
        n, x = px.min(), px.max()
        if not (0 < l < 1):
            px[:] = l
        else:
            if n < 0:
                px = l + (px - l) * l / (l - n)
            if x > 1:
                px = l + (px - l) * (1 - l) / (x - l)
        out[idx] = px
    return out


# ------------------------------------------------------------------ generators


def linear_gradient(w, h, p0, v0, p1, v1):
    y, x = np.mgrid[0:h, 0:w] + 0.5
    dx, dy = p1[0] - p0[0], p1[1] - p0[1]
    length2 = dx * dx + dy * dy
    if length2 == 0:
        return np.full((h, w), v1)
    t = np.clip(((x - p0[0]) * dx + (y - p0[1]) * dy) / length2, 0, 1)
    return v0 + t * (v1 - v0)


def radial_gradient(w, h, centre, rx, ry, r0, v0, r1, v1):
    y, x = np.mgrid[0:h, 0:w] + 0.5
    d = np.hypot((x - centre[0]) / max(rx, 1e-9), (y - centre[1]) / max(ry, 1e-9))
    if r1 <= r0:
        return np.where(d <= r0, v0, v1)
    return v0 + np.clip((d - r0) / (r1 - r0), 0, 1) * (v1 - v0)


def mix32(v):
    v = np.array(v, dtype=np.uint32, ndmin=1)
    v = v ^ (v >> np.uint32(16))
    v = v * np.uint32(0x7FEB352D)
    v = v ^ (v >> np.uint32(15))
    v = v * np.uint32(0x846CA68B)
    return v ^ (v >> np.uint32(16))


def random_noise(left, top, w, h):
    xs = (np.arange(w, dtype=np.int64) + left).astype(np.uint32)
    out = np.empty((h, w, 3))
    for y in range(h):
        row = int(mix32((top + y) & 0xFFFFFFFF)[0])
        for c in range(3):
            key = mix32((row + 0x9E3779B9 * (c + 1)) & 0xFFFFFFFF)
            out[y, :, c] = (mix32(mix32(xs) ^ key) >> np.uint32(8)) / 16777216.0
    return out


# ------------------------------------------------------------------ noise


def edge_window(a, dy, dx):
    """The image shifted so that pixel (y, x) reads (y + dy, x + dx), clamped."""
    h, w = a.shape[:2]
    ys = np.clip(np.arange(h) + dy, 0, h - 1)
    xs = np.clip(np.arange(w) + dx, 0, w - 1)
    return a[ys][:, xs]


def clear_of_threshold(make, level):
    """An input from make() whose neighbour luminance differences all stay
    1e-4 away from the noise level (float rounding cannot flip them)."""
    while True:
        a = make()
        try:
            noise_reduction(a, level, 0.0)
            return a
        except AssertionError:
            pass


def noise_reduction(a, level, sharpness, margin_check=True):
    a3 = channels(a)
    def lum(c):
        return c[..., 0] if c.shape[2] == 1 else 0.2126 * c[..., 0] + 0.7152 * c[..., 1] + 0.0722 * c[..., 2]
    y = lum(a3)
    total, count = a3.copy(), np.ones(y.shape)
    for dy in (-1, 0, 1):
        for dx in (-1, 0, 1):
            if dy == 0 and dx == 0:
                continue
            n = edge_window(a3, dy, dx)
            with np.errstate(invalid="ignore"):
                diff = np.abs(lum(n) - y)
                if margin_check:
                    finite = diff[np.isfinite(diff)]
                    assert np.all(np.abs(finite - level) > 1e-4), "a neighbour sits on the threshold"
                near = diff < level
            total += np.where(near[..., None], n, 0)
            count += near
    s = total / count[..., None]
    out = s + sharpness * (a3 - s)
    return out if a.ndim == 3 else out[..., 0]


def median3x3(a):
    a3 = channels(a)
    stack = np.stack([edge_window(a3, dy, dx) for dy in (-1, 0, 1) for dx in (-1, 0, 1)])
    out = np.sort(stack, axis=0)[4]  # numpy sorts NaN last
    return out if a.ndim == 3 else out[..., 0]


# ------------------------------------------------------------------ geometry


def lanczos(x):
    x = np.asarray(x, dtype=np.float64)
    out = np.where(x == 0, 1.0, 3 * np.sin(np.pi * x) * np.sin(np.pi * x / 3) / np.where(x == 0, 1, np.pi * x) ** 2)
    return np.where(np.abs(x) < 3, out, 0.0)


def lanczos_axis(a, out_size, axis):
    n = a.shape[axis]
    if out_size == n:
        return a
    scale = out_size / n
    stretch = min(scale, 1.0)
    support = 3 / stretch
    parts = []
    for o in range(out_size):
        centre = (o + 0.5) / scale - 0.5
        taps = np.arange(math.ceil(centre - support), math.floor(centre + support) + 1)
        w = lanczos((taps - centre) * stretch)
        w = w / w.sum()
        src = np.take(a, np.clip(taps, 0, n - 1), axis=axis)
        shape = [1] * a.ndim
        shape[axis] = len(taps)
        parts.append((src * w.reshape(shape)).sum(axis=axis))
    return np.stack(parts, axis=axis)


def lanczos_scale(a, scale, aspect):
    h, w = a.shape[:2]
    ow = max(1, int(math.floor(w * scale * aspect + 0.5)))
    oh = max(1, int(math.floor(h * scale + 0.5)))
    return lanczos_axis(lanczos_axis(a, oh, 0), ow, 1)


def affine(a, t, area):
    """t = (a, b, c, d, tx, ty): x' = a x + c y + tx, y' = b x + d y + ty."""
    ta, tb, tc, td, tx, ty = t
    a3 = channels(a)
    h, w = a3.shape[:2]
    left, top = math.floor(area[0]), math.floor(area[1])
    right, bottom = math.ceil(area[0] + area[2]), math.ceil(area[1] + area[3])
    oh, ow = max(bottom - top, 1), max(right - left, 1)
    det = ta * td - tb * tc
    y, x = np.mgrid[0:oh, 0:ow] + 0.5
    qx, qy = x + left - tx, y + top - ty
    u = (td * qx - tc * qy) / det - 0.5
    v = (-tb * qx + ta * qy) / det - 0.5
    fu, fv = np.floor(u), np.floor(v)
    fx, fy = (u - fu)[..., None], (v - fv)[..., None]
    x0, y0 = np.clip(fu, 0, w - 1).astype(int), np.clip(fv, 0, h - 1).astype(int)
    x1, y1 = np.clip(fu + 1, 0, w - 1).astype(int), np.clip(fv + 1, 0, h - 1).astype(int)
    top_row = a3[y0, x0] + fx * (a3[y0, x1] - a3[y0, x0])
    bottom_row = a3[y1, x0] + fx * (a3[y1, x1] - a3[y1, x0])
    out = top_row + fy * (bottom_row - top_row)
    return out if a.ndim == 3 else out[..., 0]


def crop(a, left, top, w, h):
    def clip(start, size, extent):
        lo, hi = max(start, 0), min(start + max(size, 0), extent)
        if hi <= lo:
            lo = min(max(start, 0), extent - 1)
            hi = lo + 1
        return lo, hi
    x0, x1 = clip(left, w, a.shape[1])
    y0, y1 = clip(top, h, a.shape[0])
    return a[y0:y1, x0:x1]


# ------------------------------------------------------------------ cases


def main():
    for old in HERE.glob("*.lvg"):
        old.unlink()

    a = hostile(9, 13, nan=True, inf=True)
    write("exposure_rgb", [1.5], [a], exposure(a, 1.5))
    g = hostile(1, 1, bands=1)
    write("exposure_grey_1x1", [-2.25], [g], exposure(g, -2.25))

    m = [1.2, -0.1, 0.05, 0.01, 0.2, 0.9, -0.3, 0.0, -0.05, 0.4, 1.1, 0.02, 0.0, 0.0, 0.0, 1.0,
         0.01, -0.02, 0.03, 0.5]
    a = hostile(7, 11)
    write("color_matrix_rgb", m, [a], color_matrix(a, m))
    g = hostile(1, 9, bands=1)
    write("color_matrix_grey_1xN", m, [g], color_matrix(g, m))

    lo, hi = [0.0, 0.1, -0.2, 0.0], [1.0, 0.8, 1.5, 1.0]
    a = hostile(8, 10, nan=True, inf=True)
    write("color_clamp_rgb", lo + hi, [a], color_clamp(a, lo, hi))
    g = hostile(9, 1, bands=1, nan=True)
    write("color_clamp_grey_Nx1", lo + hi, [g], color_clamp(g, lo, hi)[..., 0])

    for name, p in (("gamma_encode", 1 / 2.2), ("gamma_decode", 2.2)):
        a = hostile(9, 12, nan=True, inf=True)
        a[0, 0] = [1e-40, -1e-42, 3e25]  # subnormal, negative subnormal, a power that overflows
        write(name, [p], [a], gamma(a, p))

    a = hostile(6, 9, nan=True, inf=True)
    write("color_invert", [], [a], 1 - a)

    tables = {}
    for name, n in (("color_cube_5", 5), ("color_cube_2", 2)):
        grid = np.stack(np.meshgrid(np.linspace(0, 1, n), np.linspace(0, 1, n), np.linspace(0, 1, n),
                                    indexing="ij"), axis=-1)  # [b][g][r] -> (b, g, r)
        b, gg, r = grid[..., 0], grid[..., 1], grid[..., 2]
        table = np.stack([r ** 0.8 * 0.9 + 0.1 * gg, gg ** 1.2 + 0.05 * b - 0.02, 0.3 * r + 0.7 * b ** 2,
                          np.ones_like(r)], axis=-1) + rng.normal(0, 0.02, size=(n, n, n, 4))
        table = f32(table)
        a = hostile(9, 11, nan=True, inf=True)
        # Exact grid positions and the top corner, where the cell index must not run over.
        a[0, 0] = [1.0, 1.0, 1.0]
        a[0, 1] = [0.25, 0.5, 0.75]
        a[0, 2] = [1.0, 0.0, 1.0]
        cube_image = table.reshape(1, n * n * n, 4)
        write(name, [n], [a, cube_image], color_cube(a, table.reshape(-1), n))
        tables[n] = table
    g = hostile(1, 7, bands=1, nan=True)
    write("color_cube_grey_1xN", [5], [g, tables[5].reshape(1, -1, 4)], color_cube(g, tables[5].reshape(-1), 5))

    for name, sigma, shape in (("gaussian_0.3", 0.3, (9, 14)), ("gaussian_1", 1.0, (12, 10)),
                               ("gaussian_3.7", 3.7, (11, 16)), ("gaussian_wider_than_image", 4.0, (3, 5)),
                               ("gaussian_1x1", 2.0, (1, 1)), ("gaussian_1xN", 1.5, (1, 17)),
                               ("gaussian_identity", 0.05, (4, 4))):
        a = smooth(*shape) if shape[0] * shape[1] > 1 else hostile(1, 1)
        a[min(2, shape[0] - 1), min(3, shape[1] - 1)] = [3.0, -1.0, 0.5]
        write(name, [sigma], [a], gaussian(a, sigma))
    g = smooth(6, 8, bands=1)
    write("gaussian_grey", [1.3], [g], gaussian(g, 1.3))

    for name, radius, intensity, shape in (("unsharp_0.3", 0.3, 0.8, (9, 11)), ("unsharp_2.5", 2.5, 1.5, (14, 12)),
                                           ("unsharp_20", 20.0, 0.5, (6, 7))):
        a = smooth(*shape)
        write(name, [radius, intensity], [a], unsharp(a, radius, intensity))

    a, b = hostile(7, 9), hostile(7, 9)
    mask = f32(rng.uniform(-0.25, 1.25, size=(7, 9)))
    mask[0, :3] = [0.0, 1.0, 0.5]
    write("blend_with_mask", [], [a, b, mask], blend(a, b, mask))
    grey = hostile(7, 9, bands=1)
    mask3 = np.repeat(mask[:, :, None], 3, axis=2)
    mask3[..., 1:] = 7.0  # only the first band counts
    write("blend_grey_over_rgb_rgb_mask", [], [grey, b, mask3], blend(grey, b, mask3))

    a, b = hostile(5, 8), hostile(5, 8)
    write("multiply", [], [a, b], a * b)
    write("dissolve_0.3", [0.3], [a, b], dissolve(a, b, 0.3))
    write("dissolve_clamped", [1.7], [a, b], dissolve(a, b, 1.7))

    s, bg = f32(rng.uniform(0, 1, size=(8, 9, 3))), f32(rng.uniform(0, 1, size=(8, 9, 3)))
    s[0, 0], bg[0, 0] = [0.9, 0.9, 0.9], [0.0, 0.0, 1.0]  # clips above 1
    s[0, 1], bg[0, 1] = [0.05, 0.05, 0.05], [1.0, 1.0, 0.0]  # clips below 0
    s[1, :3] = [[1.4, 1.2, 1.3], [-0.2, -0.1, 0.0], [0.0, 0.0, 0.0]]  # luminosity outside 0 ... 1
    write("luminosity", [], [s, bg], luminosity(s, bg))

    write("linear_gradient", [17, 11, 2.5, 3.0, 0.2, 14.0, 9.5, 0.9], [],
          linear_gradient(17, 11, (2.5, 3.0), 0.2, (14.0, 9.5), 0.9))
    write("linear_gradient_no_length", [5, 4, 2.0, 2.0, 1.0, 2.0, 2.0, 0.25], [],
          linear_gradient(5, 4, (2.0, 2.0), 1.0, (2.0, 2.0), 0.25))
    write("radial_gradient", [19, 13, 9.5, 6.5, 9.5, 6.5, 0.4, 0.0, 1.2, 1.0], [],
          radial_gradient(19, 13, (9.5, 6.5), 9.5, 6.5, 0.4, 0.0, 1.2, 1.0))
    write("radial_gradient_step", [12, 7, 3.0, 4.0, 2.0, 5.0, 1.0, 1.0, 0.5, 0.0], [],
          radial_gradient(12, 7, (3.0, 4.0), 2.0, 5.0, 1.0, 1.0, 0.5, 0.0))

    write("random_negative_window", [-37, -5, 21, 9], [], random_noise(-37, -5, 21, 9))
    write("random_far_window", [2147483000, 123456, 9, 3], [], random_noise(2147483000, 123456, 9, 3))

    a = clear_of_threshold(lambda: smooth(10, 13, noise=0.04), 0.05)
    write("noise_reduction", [0.05, 0.0], [a], noise_reduction(a, 0.05, 0.0))
    write("noise_reduction_sharpness", [0.05, 0.5], [a], noise_reduction(a, 0.05, 0.5))
    def with_nan():
        a = smooth(6, 7, noise=0.04)
        a[2, 3] = [np.nan, 0.5, 0.5]
        return a
    a = clear_of_threshold(with_nan, 0.03)
    write("noise_reduction_nan", [0.03, 0.0], [a], noise_reduction(a, 0.03, 0.0))
    g = clear_of_threshold(lambda: smooth(1, 9, bands=1, noise=0.05), 0.04)
    write("noise_reduction_grey_1xN", [0.04, 0.0], [g], noise_reduction(g, 0.04, 0.0))

    a = hostile(9, 10, nan=True, inf=True)
    a[4:7, 4:7, 0] = np.nan  # five NaN or more in some windows
    a[5, 7, 0] = np.nan
    write("median", [], [a], median3x3(a))
    write("median_1x1", [], [a[:1, :1]], median3x3(a[:1, :1]))
    g = hostile(2, 6, bands=1)
    write("median_grey_2xN", [], [g], median3x3(g))

    a = smooth(16, 21)
    write("lanczos_down", [0.37, 1.3], [a], lanczos_scale(a, 0.37, 1.3))
    a = smooth(5, 6)
    write("lanczos_up", [2.3, 0.8], [a], lanczos_scale(a, 2.3, 0.8))
    a = smooth(1, 11)
    write("lanczos_1xN", [0.5, 1.0], [a], lanczos_scale(a, 0.5, 1.0))

    a = smooth(9, 12)
    angle = 0.3
    t = [0.9 * math.cos(angle), 0.9 * math.sin(angle), -0.9 * math.sin(angle), 0.9 * math.cos(angle), 2.0, -1.5]
    area = [-3.3, -2.0, 17.1, 15.6]  # reaches well beyond the input
    write("affine", t + area, [a], affine(a, t, area))
    g = smooth(4, 5, bands=1)
    t = [2.5, 0.0, 0.0, -1.5, 0.25, 7.0]  # scale and mirror
    area = [0.0, 0.0, 13.0, 8.0]
    write("affine_grey_mirror", t + area, [g], affine(g, t, area))

    a = hostile(6, 7)
    write("crop_inside", [2, 1, 3, 4], [a], crop(a, 2, 1, 3, 4))
    write("crop_overhanging", [-2, 3, 20, 20], [a], crop(a, -2, 3, 20, 20))
    write("crop_outside", [9, -8, 3, 2], [a], crop(a, 9, -8, 3, 2))
    write("flip_horizontal", [1], [a], a[:, ::-1])
    write("flip_vertical", [0], [a], a[::-1])
    for turns in (1, 2, 3, -1, 6):
        write("rotate_%s" % str(turns).replace("-", "minus"), [turns], [a], np.rot90(a, k=-turns))

    total = sum((HERE / (n + ".lvg")).stat().st_size for n in written)
    print("wrote %d goldens, %d bytes, into %s" % (len(written), total, HERE))


if __name__ == "__main__":
    main()
