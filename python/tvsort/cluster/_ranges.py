"""Splitters: where the ranges of keys begin."""

RANGES_MAX = 900  # at once; a split allows a little more


def splitters_of(samples, count, form):
    """Keys that divide weighted samples, (key, weight) pairs, into `count` ranges of about one weight.

    A key that alone has more than a range's weight gets a range of its own, while there are no more
    than RANGES_MAX splitters; a range that is too large then is split again.
    """
    samples = sorted(samples)
    total = sum(weight for _, weight in samples)
    if total <= 0 or count < 2:
        return []
    chosen, reached, border = set(), 0.0, 1
    weights = {}
    for key, weight in samples:
        weights[key] = weights.get(key, 0) + weight
    for key in sorted(weights):
        before = reached
        reached += weights[key]
        if reached * count < border * total:
            continue
        if weights[key] * count > total:
            chosen.add(key)
            following = form.successor(key)
            if following is not None:
                chosen.add(following)
        elif before > 0 and border < count:
            chosen.add(key)
        while reached * count >= border * total:
            border += 1
    splitters, most = sorted(chosen), min(len(chosen), RANGES_MAX)
    return [splitters[i * len(splitters) // most] for i in range(most)]


def joined(*lists):
    return sorted(set().union(*lists))


def is_one_key(low, high, form):
    """Whether a range from `low` on, up to `high`, can hold no other key than `low`."""
    return low is not None and high is not None and form.successor(low) == high
