// Which photos belong to one burst: the rule of `tessaline4 batch`.
//
// Photos are taken in the order of their times, equal times in the order of names. A new group begins with a photo
//   - that was taken more than the gap after the one before it,
//   - of another camera (make or model) or another size, or
//   - whose exposure time or ISO differs by more than a factor of 2; where either is not known, it does not differ.
// Groups of two and more are bursts.
//
// The gap is found from the data: the differences of time between neighbours, in whole microseconds, are limited to
// 0.05 s and 10 s (to 1 s and 10 s when any photo tells whole seconds only) and sorted. Of the neighbours a < b among
// them with b >= 1 s and b >= 3 a, those with the largest b / a count, the last of equal ones: gap = sqrt(a b).
// Without any: 2 s.
//
// A photo is {name, time, wholeSeconds, make, model, width, height, exposureSeconds, iso}: time in microseconds on the
// clock of the camera; exposureSeconds and iso null where they are not known.

const SECOND = 1e6;
const SHORTEST_GAP = 0.05 * SECOND;
const LONGEST_GAP = 10 * SECOND;
const TICK = SECOND;  // of clocks that tell whole seconds
const LEAST_PAUSE = SECOND;
const LEAST_JUMP = 3;
const USUAL_GAP = 2 * SECOND;
const SAME_EXPOSURE = 2;

function compare(a, b) {
  return a < b ? -1 : a > b ? 1 : 0;
}

function differ(a, b) {
  return a !== null && b !== null && Math.max(a, b) > SAME_EXPOSURE * Math.min(a, b);
}

function startsGroup(last, next, gap) {
  return next.time - last.time > gap || last.make !== next.make || last.model !== next.model ||
    last.width !== next.width || last.height !== next.height || differ(last.exposureSeconds, next.exposureSeconds) ||
    differ(last.iso, next.iso);
}

// Microseconds. photos: in order.
export function findGap(photos) {
  const least = photos.some(photo => photo.wholeSeconds) ? TICK : SHORTEST_GAP;
  const gaps = photos.slice(1).map((photo, i) => Math.min(Math.max(photo.time - photos[i].time, least), LONGEST_GAP));
  gaps.sort((a, b) => a - b);
  let best = LEAST_JUMP;
  let found = USUAL_GAP;
  for (let i = 1; i < gaps.length; ++i) {
    const jump = gaps[i] / gaps[i - 1];
    if (gaps[i] < LEAST_PAUSE || jump < best) continue;
    best = jump;
    found = Math.sqrt(gaps[i - 1] * gaps[i]);
  }
  return found;
}

// {bursts, singles}: bursts are lists of two and more photos.
export function groupPhotos(photos) {
  const sorted = [...photos].sort((a, b) => a.time - b.time || compare(a.name, b.name));
  const gap = findGap(sorted);
  const groups = [];
  for (const photo of sorted) {
    const last = groups.at(-1)?.at(-1);
    if (last && !startsGroup(last, photo, gap)) {
      groups.at(-1).push(photo);
    } else {
      groups.push([photo]);
    }
  }
  return {bursts: groups.filter(group => group.length > 1), singles: groups.filter(group => group.length === 1).flat()};
}
