import type { Standing } from '../native';

export function StandingLine({ standing }: { standing: Standing }) {
  return (
    <p class="standing" aria-live="polite">
      <span>
        <strong>{standing.streak}</strong> in a row
      </span>
      <span>
        best <strong>{standing.best}</strong>
      </span>
      <span>
        <strong>{standing.tovin}</strong> kept
      </span>
      <span>
        <strong>{standing.broken}</strong> broken
      </span>
    </p>
  );
}
