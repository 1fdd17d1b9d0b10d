// Prints how the page would group the photos of a folder, as JSON: a list of lists of names, bursts only.
//
//   node groups.mjs DIST FOLDER
import {File} from 'node:buffer';
import {readFileSync, readdirSync, statSync} from 'node:fs';
import path from 'node:path';
import {pathToFileURL} from 'node:url';

const [dist, folder] = process.argv.slice(2).map(each => path.resolve(each));
const {groupPhotos} = await import(pathToFileURL(path.join(dist, 'grouping.js')));
const {readPhoto} = await import(pathToFileURL(path.join(dist, 'picture_file.js')));
const photos = await Promise.all(readdirSync(folder).map(name => {
  const full = path.join(folder, name);
  return readPhoto(new File([readFileSync(full)], name, {lastModified: statSync(full).mtimeMs}));
}));
console.log(JSON.stringify(groupPhotos(photos).bursts.map(burst => burst.map(photo => photo.name))));
