import { describe, expect, it } from 'vitest';

import { customId, loadCustomCircuits, resolveCircuit, saveCustomCircuit, type CircuitStore } from '../src/circuits';
import { asArray, normalise } from '../src/native';

function memoryStore(): CircuitStore {
  const data = new Map<string, string>();
  return { getItem: (k) => data.get(k) ?? null, setItem: (k, v) => void data.set(k, v) };
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
    expect(n).toMatchObject({ mode: 'locked', promises: [], onboarded: false, shown: true });
    expect(n.blocks).toHaveLength(1);
    expect(n.schedule.weekdays).toEqual([1, 2, 3, 4, 5, 6, 7]);
    expect(() => n.complete('x', 1)).not.toThrow();
  });
});

describe('circuits', () => {
  it('runs a camera coach as its stand-in, a custom circuit by its id, and an unknown id as the default', () => {
    const store = memoryStore();
    saveCustomCircuit({ id: customId('Lunch  Legs!'), name: 'Lunch Legs', description: '', restSeconds: 10, items: [{ exercise: 'squat' }] }, store);
    const custom = loadCustomCircuits(store);
    expect(resolveCircuit('coach:squats', custom)).toMatchObject({ fellBack: false, circuit: { id: 'legs-at-the-desk' } });
    expect(resolveCircuit('custom-lunch-legs', custom)).toMatchObject({ fellBack: false, circuit: { name: 'Lunch Legs' } });
    expect(resolveCircuit('no-such-thing', custom)).toMatchObject({ fellBack: true, circuit: { id: 'classic-7' } });
  });

  it('drops stored circuits that are corrupt or name unknown exercises', () => {
    const store = memoryStore();
    store.setItem('tovin.circuits', JSON.stringify([{ id: 'a', name: 'A', items: [{ exercise: 'teleport' }] }, 'junk', { id: 'b', name: 'B', items: [{ exercise: 'plank' }] }]));
    expect(loadCustomCircuits(store).map((c) => c.id)).toEqual(['b']);
    store.setItem('tovin.circuits', '{broken');
    expect(loadCustomCircuits(store)).toEqual([]);
  });
});
