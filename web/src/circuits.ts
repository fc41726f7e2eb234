// Which circuit a lockout runs: a preset, a custom circuit the person built (kept in the page's
// own storage, which the shell's persistent profile preserves), or, for an id nobody knows,
// the default preset rather than a blank screen.

import { cameraCoaches, defaultCircuitId, exercise, presets, type Circuit, type CircuitItem } from './catalogue';

const storageKey = 'tovin.circuits';

export interface CircuitStore {
  getItem(key: string): string | null;
  setItem(key: string, value: string): void;
}

function storage(): CircuitStore | undefined {
  try {
    return window.localStorage;
  } catch {
    return undefined;
  }
}

function isCircuit(value: unknown): value is Circuit {
  const c = value as Circuit;
  return (
    typeof c === 'object' && c !== null && typeof c.id === 'string' && typeof c.name === 'string' &&
    Array.isArray(c.items) && c.items.length > 0 &&
    c.items.every((i: CircuitItem) => typeof i?.exercise === 'string' && exercise(i.exercise) !== undefined)
  );
}

export function loadCustomCircuits(store: CircuitStore | undefined = storage()): Circuit[] {
  if (!store) return [];
  try {
    const parsed: unknown = JSON.parse(store.getItem(storageKey) ?? '[]');
    return Array.isArray(parsed) ? parsed.filter(isCircuit) : [];
  } catch {
    return [];
  }
}

export function saveCustomCircuit(circuit: Circuit, store: CircuitStore | undefined = storage()): Circuit[] {
  const all = loadCustomCircuits(store).filter((c) => c.id !== circuit.id);
  all.push(circuit);
  store?.setItem(storageKey, JSON.stringify(all));
  return all;
}

export function deleteCustomCircuit(id: string, store: CircuitStore | undefined = storage()): Circuit[] {
  const all = loadCustomCircuits(store).filter((c) => c.id !== id);
  store?.setItem(storageKey, JSON.stringify(all));
  return all;
}

/** A stable id for a custom circuit's name: "custom-" and a slug. */
export function customId(name: string): string {
  const slug = name
    .toLowerCase()
    .normalize('NFKD')
    .replace(/[^a-z0-9]+/g, '-')
    .replace(/^-+|-+$/g, '')
    .slice(0, 40);
  return `custom-${slug || 'circuit'}`;
}

export function resolveCircuit(id: string | undefined, custom: Circuit[] = loadCustomCircuits()): {
  circuit: Circuit;
  fellBack: boolean;
} {
  // A camera coach whose camera could not be used runs its own stand-in circuit.
  const coach = cameraCoaches.find((c) => c.id === id);
  if (coach) return { circuit: presets.find((p) => p.id === coach.fallbackCircuitId)!, fellBack: false };
  const found = presets.find((p) => p.id === id) ?? custom.find((c) => c.id === id);
  if (found) return { circuit: found, fellBack: false };
  return { circuit: presets.find((p) => p.id === defaultCircuitId)!, fellBack: true };
}
