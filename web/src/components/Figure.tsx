import type { Pose } from '../catalogue';

// A simple line figure for each kind of move: enough to recognise the position at a glance,
// drawn inline so nothing is fetched.
const poses: Record<Pose, string[]> = {
  stand: ['M60 22a8 8 0 1 0 0.1 0', 'M60 30 L60 66', 'M60 40 L44 58', 'M60 40 L76 58', 'M60 66 L50 100', 'M60 66 L70 100'],
  squat: ['M56 34a8 8 0 1 0 0.1 0', 'M58 42 L54 70', 'M58 50 L82 54', 'M54 70 L76 76', 'M76 76 L72 100', 'M54 70 L70 84 L66 100'],
  lunge: ['M60 20a8 8 0 1 0 0.1 0', 'M60 28 L60 62', 'M60 38 L48 56', 'M60 38 L72 56', 'M60 62 L80 80 L80 100', 'M60 62 L42 84 L30 96'],
  plank: ['M22 62a7 7 0 1 0 0.1 0', 'M30 64 L96 80', 'M34 66 L34 88', 'M34 88 L46 88', 'M96 80 L104 92'],
  pushup: ['M24 58a7 7 0 1 0 0.1 0', 'M32 60 L98 82', 'M38 62 L38 92', 'M98 82 L104 92'],
  jump: ['M60 14a8 8 0 1 0 0.1 0', 'M60 22 L60 58', 'M60 32 L40 14', 'M60 32 L80 14', 'M60 58 L44 92', 'M60 58 L76 92'],
  sit: ['M46 24a8 8 0 1 0 0.1 0', 'M46 32 L46 66', 'M46 42 L64 52', 'M46 66 L76 66', 'M76 66 L76 98', 'M30 70 L92 70'],
  stretch: ['M54 20a8 8 0 1 0 0.1 0', 'M56 28 L64 64', 'M58 36 L84 26', 'M58 40 L82 44', 'M64 64 L52 100', 'M64 64 L82 98'],
  floor: ['M22 82a7 7 0 1 0 0.1 0', 'M30 84 L74 84', 'M74 84 L88 66 L100 84', 'M40 84 L52 70', 'M14 96 L108 96'],
};

export function Figure({ pose, label }: { pose: Pose; label: string }) {
  return (
    <svg class="figure" viewBox="0 0 120 110" role="img" aria-label={label}>
      {poses[pose].map((d) => (
        <path d={d} />
      ))}
    </svg>
  );
}
