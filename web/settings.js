// What can be set, by the names of the library's setters: labels and ranges for people, and the defaults of the two
// modes, which are those of the command-line tool. null: the library chooses.

export const SETTINGS = [
  {name: 'fine', setter: 'setFineMode', label: 'Fine mode', flag: true, usual: [0, 1],
    help: 'Aligns below the pixel and chooses noise reduction by the noise it measures.'},
  {name: 'autoScaling', setter: 'setAutoScaling', label: 'Auto scaling', flag: true, usual: [0, 0],
    help: 'Crops to what all photos show, scaled up to their size.'},
  {name: 'autoSorting', setter: 'setAutoSorting', label: 'Sharpest photo first', flag: true, usual: [1, 1],
    help: 'The sharpest photo is the base and blurred ones are left out; else the first is.'},
  {name: 'framesToMerge', setter: 'setNumberOfMergeImages', label: 'Photos to merge at most', range: [1, 10],
    usual: [null, null], unset: 'all', help: ''},
  {name: 'ghostLevel', setter: 'setObjBlurCorrectionLevel', label: 'Care against ghosts', range: [0, 7],
    usual: [1, null], unset: 'usual', help: 'More of it merges less of what moved.'},
  {name: 'lumaLevel', setter: 'setLumaNoiseReductionLevel', label: 'Noise reduction, brightness', range: [0, 7],
    usual: [4, null], unset: 'by the noise', help: ''},
  {name: 'chromaLevel', setter: 'setChromaNoiseReductionLevel', label: 'Noise reduction, colour', range: [0, 7],
    usual: [0, null], unset: 'by the noise', help: ''},
  {name: 'sharpness', setter: 'setSharpnessEnhanceLevel', label: 'Sharpness', range: [0, 10000], usual: [40, null],
    unset: 'what the merge took', help: 'Strength of the sharpening at the end.'},
  {name: 'saturation', setter: 'setSaturationLevel', label: 'Saturation', range: [0, 4096], usual: [null, null],
    unset: '1024', help: '1024 leaves colours as they are.'},
  {name: 'gain', setter: 'setGain', label: 'Brightness in per cent', range: [0, 1000], usual: [null, null],
    unset: '100', help: ''},
  {name: 'gamma', setter: 'setGamma', label: 'Gamma in per cent', range: [0, 1000], usual: [null, null], unset: '100',
    help: ''},
  {name: 'removeSpike', setter: 'setRemoveSpikeNoiseLevel_internal', label: 'Removal of stray pixels',
    range: [0, 1000], usual: [0, null], unset: 'usual', help: ''},
];

// The settings that a merge starts from, {name: number or null}.
export function usualSettings(fine = true) {
  return Object.fromEntries(SETTINGS.map(setting => [setting.name, setting.usual[fine ? 1 : 0]]));
}
