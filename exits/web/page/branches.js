// The tree of the URLs: which rows it has under a filter, and how many values below a branch are not valid.

class Branch {
  isOpen = false;
  faulty = 0;
  leaves = 0;
  children = [];
  parts = new Map();

  constructor(name, url, parent) {
    this.name = name;
    this.url = url;
    this.parent = parent;
    this.level = parent ? parent.level + 1 : 0;
  }
}

export class Branches {
  #plant;
  #root = new Branch('', '', null);
  #parents = [];
  #texts = [];
  #counted = [];

  constructor(plant) {
    this.#plant = plant;
    plant.leaves.forEach((leaf) => this.#place(leaf));
    const isSmall = plant.leaves.length <= 200;
    this.#openBelow(this.#root, isSmall ? Infinity : 0);
  }

  /** Takes over what has become of the leaves; true if one has become valid or has ceased to be. */
  take(indexes) {
    let isChanged = false;
    for (const index of indexes) {
      const isFaulty = this.#plant.isFaulty(index);
      if (isFaulty !== this.#counted[index]) {
        this.#counted[index] = isFaulty;
        isChanged = true;
        for (let branch = this.#parents[index]; branch; branch = branch.parent) {
          branch.faulty += isFaulty ? 1 : -1;
        }
      }
    }
    return isChanged;
  }

  /**
   * The rows from top to bottom: {key, level, place, siblings, and branch or leaf}. Under a filter every branch that
   * has something is open.
   */
  rows({words, onlyFaulty}) {
    const isFiltered = words.length > 0 || onlyFaulty;
    const isShown = (leaf) => (!onlyFaulty || this.#plant.isFaulty(leaf.index))
      && words.every((word) => this.#texts[leaf.index].includes(word));
    return this.#rowsBelow(this.#root, isFiltered, isShown);
  }

  #place(leaf) {
    const parts = leaf.url.split('/');
    let branch = this.#root;
    branch.leaves += 1;
    for (const part of parts.slice(0, -1)) {
      if (!branch.parts.has(part)) {
        const next = new Branch(part, branch.url ? `${branch.url}/${part}` : part, branch);
        branch.parts.set(part, next);
        branch.children.push({branch: next});
      }
      branch = branch.parts.get(part);
      branch.leaves += 1;
    }
    branch.children.push({leaf});
    this.#parents[leaf.index] = branch;
    this.#texts[leaf.index] = `${leaf.url}\n${leaf.label ?? ''}\n${leaf.unit ?? ''}`.toLowerCase();
    this.#counted[leaf.index] = false;
  }

  #openBelow(branch, levels) {
    branch.isOpen = true;
    if (levels > 0) {
      branch.children.forEach((child) => child.branch && this.#openBelow(child.branch, levels - 1));
    }
  }

  #rowsBelow(parent, isFiltered, isShown) {
    const blocks = [];
    for (const {branch, leaf} of parent.children) {
      if (leaf) {
        if (isShown(leaf)) {
          blocks.push([{key: `leaf ${leaf.index}`, level: parent.level + 1, leaf}]);
        }
      } else {
        const isOpen = branch.isOpen || isFiltered;
        const below = isOpen ? this.#rowsBelow(branch, isFiltered, isShown) : [];
        if (!isFiltered || below.length > 0) {
          blocks.push([{key: `branch ${branch.url}`, level: branch.level, branch, isOpen}, ...below]);
        }
      }
    }
    blocks.forEach((block, place) => Object.assign(block[0], {place: place + 1, siblings: blocks.length}));
    return blocks.flat();
  }
}
