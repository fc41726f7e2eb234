import { describe, expect, it } from 'vitest';

import { customId, resolveCircuit, loadCustomCircuits, saveCustomCircuit } from '../src/circuits';
import { asArray, normalise } from '../src/native';

class MemoryStore {
  data = new Map<string, string>();
  getItem(k: string) {
    return this.data.get(k) ?? null;
  }
  setItem(k: string, v: string) {
    this.data.set(k, v);
  }
}

describe('the bridge as received', () => {
  it('accepts arrays or JSON text and never throws on junk', () => {
    expect(asArray([1, 2])).toEqual([1, 2]);
    expect(asArray('[{"a":1}]')).toEqual([{ a: 1 }]);
    expect(asArray('{"a":1}')).toEqual([]);
    expect(asArray('not json')).toEqual([]);
    expect(asArray(undefined)).toEqual([]);
  });

  it('fills defaults for a partial or hostile object', () => {
    const n = normalise({ mode: 'nonsense' as never, blocks: '[{"at":"09:00","label":"A","kind":"workout"}]', promises: 42 });
    expect(n.mode).toBe('locked');
    expect(n.blocks).toHaveLength(1);
    expect(n.promises).toEqual([]);
    expect(n.schedule.weekdays).toEqual([1, 2, 3, 4, 5, 6, 7]);
    expect(n.onboarded).toBe(false);
    expect(() => n.complete('x', 1)).not.toThrow();
  });
});

describe('circuits', () => {
  it('falls back to the default preset for an unknown id, and finds custom ones', () => {
    expect(resolveCircuit(undefined)).toMatchObject({ fellBack: true, circuit: { id: 'classic-7' } });
    expect(resolveCircuit('core-five')).toMatchObject({ fellBack: false, circuit: { id: 'core-five' } });
    // A camera coach whose camera could not be used runs its stand-in, without the not-found note.
    expect(resolveCircuit('coach:squats')).toMatchObject({ fellBack: false, circuit: { id: 'legs-at-the-desk' } });
    const store = new MemoryStore();
    saveCustomCircuit({ id: customId('Lunch  Legs!'), name: 'Lunch Legs', description: '', restSeconds: 10, items: [{ exercise: 'squat' }] }, store);
    const custom = loadCustomCircuits(store);
    expect(custom.map((c) => c.id)).toEqual(['custom-lunch-legs']);
    expect(resolveCircuit('custom-lunch-legs', custom)).toMatchObject({ fellBack: false, circuit: { name: 'Lunch Legs' } });
  });

  it('drops stored circuits that are corrupt or name unknown exercises', () => {
    const store = new MemoryStore();
    store.setItem('tovin.circuits', JSON.stringify([{ id: 'a', name: 'A', items: [{ exercise: 'teleport' }] }, 'junk', { id: 'b', name: 'B', items: [{ exercise: 'plank' }] }]));
    expect(loadCustomCircuits(store).map((c) => c.id)).toEqual(['b']);
    store.setItem('tovin.circuits', '{broken');
    expect(loadCustomCircuits(store)).toEqual([]);
  });
});
